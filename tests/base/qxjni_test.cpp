// SPDX-License-Identifier: LicenseRef-qxkernel
// VM access without a virtual machine: with a table of C functions in its place. The real one: qxjni_vm_test.cpp.
#include "qxjni.hpp"

#include "qxexception.hpp"
#include "support/fake_jni.hpp"
#include "support/fake_vm.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <jni.h>

using qxbase::PendingException;
using qxbase::QxJCall;
using qxutil::AttachThread;
using qxutil::VMData;
using testing::Each;
using testing::ElementsAre;

extern "C" jint JNI_OnLoad(JavaVM*, void*);
extern "C" void JNI_OnUnload(JavaVM*, void*);

namespace {

using FakeVM = qxtest::FakeVM<qxtest::FakeJni>;

std::string idOf(const std::function<void()>& work)
{
    try {
        work();
        return "";
    } catch (const qxbase::Exception& e) {
        return e.getId();
    }
}

} // namespace

TEST(QxJCall, ThereIsNoVMInAProcessWithoutJava)
{
    EXPECT_EQ(QxJCall::getVM(), nullptr);
    EXPECT_EQ(VMData::getJNIEnv(), nullptr);
}

TEST(QxJCall, KeepsTheVMThatLoadedTheLibrary)
{
    FakeVM fake;
    QxJCall::setVM(nullptr);

    EXPECT_EQ(JNI_OnLoad(&fake.vm, nullptr), JNI_VERSION_1_8);
    EXPECT_EQ(QxJCall::getVM(), &fake.vm);

    JNI_OnUnload(&fake.vm, nullptr);
    EXPECT_EQ(QxJCall::getVM(), nullptr);
}

TEST(AttachThread, AttachesForItsScope)
{
    FakeVM fake;
    {
        const AttachThread scope;
        EXPECT_EQ(VMData::getJNIEnv(), fake.jni.env());
    }

    EXPECT_EQ(VMData::getJNIEnv(), nullptr);
    EXPECT_THAT(fake.calls, ElementsAre("attach", "detach"));
}

TEST(AttachThread, DoesNotDetachAThreadThatWasAttachedBefore)
{
    FakeVM fake;
    fake.attached = true;
    {
        const AttachThread scope;
    }

    EXPECT_TRUE(fake.attached);
    EXPECT_TRUE(fake.calls.empty());
}

TEST(AttachThread, InnerScopesLeaveTheAttachmentToTheOuterOne)
{
    FakeVM fake;
    {
        const AttachThread outer;
        {
            const AttachThread inner;
        }
        EXPECT_TRUE(fake.attached);
    }

    EXPECT_THAT(fake.calls, ElementsAre("attach", "detach"));
}

TEST(AttachThread, ClearDetachesOnce)
{
    FakeVM fake;
    {
        AttachThread scope;
        scope.clear();
        EXPECT_FALSE(fake.attached);
        scope.clear();
    }

    EXPECT_THAT(fake.calls, ElementsAre("attach", "detach"));
}

TEST(AttachThread, WithoutAVMOrWhenItRefusesThereIsNoEnvironment)
{
    {
        const AttachThread scope;
        EXPECT_EQ(VMData::getJNIEnv(), nullptr);
    }
    FakeVM fake;
    fake.refuses = true;
    {
        const AttachThread scope;
        EXPECT_EQ(VMData::getJNIEnv(), nullptr);
    }

    EXPECT_THAT(fake.calls, ElementsAre("attach"));
}

TEST(JavaText, BecomesUtf8)
{
    qxtest::FakeJni jni;

    EXPECT_EQ(qxbase::jStr2CppStr(jni.env(), jni.string(u"x+1")), "x+1");
    EXPECT_EQ(qxbase::jStr2CppStr(jni.env(), jni.string(u"\u00e9\u20ac\U0001F600")), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(qxbase::jStr2CppStr(jni.env(), jni.string(std::u16string(u"a\0b", 3))), std::string("a\0b", 3));
    EXPECT_EQ(qxbase::jStr2CppStr(jni.env(), jni.string(u"")), "");
}

TEST(JavaText, BecomesWideText)
{
    qxtest::FakeJni jni;

    EXPECT_EQ(qxbase::jStr2CppWStr(jni.env(), jni.string(u"\u00e9\U0001F600")), L"\u00e9\U0001F600");
}

TEST(JavaText, SurrogatesWithoutAPartnerAreReplaced)
{
    qxtest::FakeJni jni;
    const std::u16string broken = {0xd83d, u'x', 0xde00, 0xd83d};

    EXPECT_EQ(qxbase::jStr2CppWStr(jni.env(), jni.string(broken)), L"\xfffdx\xfffd\xfffd");
}

TEST(JavaText, IsMadeFromUtf8AndWideText)
{
    qxtest::FakeJni jni;

    EXPECT_EQ(jni.unitsOf(qxbase::toJavaNew(jni.env(), std::string("\xc3\xa9\xf0\x9f\x98\x80"))), u"\u00e9\U0001F600");
    EXPECT_EQ(jni.unitsOf(qxbase::toJavaNew(jni.env(), std::wstring(L"\u00e9\U0001F600"))), u"\u00e9\U0001F600");
    EXPECT_EQ(jni.unitsOf(qxbase::toJavaNew(jni.env(), std::string())), u"");
}

TEST(JavaText, BytesThatAreNotUtf8AreReplacedOneByOne)
{
    qxtest::FakeJni jni;
    const auto units = [&](const std::string& text) { return jni.unitsOf(qxbase::toJavaNew(jni.env(), text)); };

    EXPECT_EQ(units("a\xff""b"), u"a\ufffdb");
    EXPECT_EQ(units("\xc3"), u"\ufffd");                       // cut short
    EXPECT_EQ(units("\xc0\x80"), u"\ufffd\ufffd");             // overlong zero
    EXPECT_EQ(units("\xed\xa0\x80"), u"\ufffd\ufffd\ufffd");   // a surrogate
    EXPECT_EQ(units("\xf4\x90\x80\x80"), u"\ufffd\ufffd\ufffd\ufffd"); // beyond U+10FFFF
    EXPECT_EQ(units("\x80x"), u"\ufffdx");
}

TEST(JavaText, WideUnitsThatAreNoCharactersAreReplaced)
{
    qxtest::FakeJni jni;
    const std::wstring bad = {wchar_t(0xd800), wchar_t(0x110000), L'x'};

    EXPECT_EQ(jni.unitsOf(qxbase::toJavaNew(jni.env(), bad)), u"\ufffd\ufffdx");
}

TEST(JavaText, ANullStringRaises)
{
    qxtest::FakeJni jni;

    EXPECT_EQ(idOf([&] { qxbase::jStr2CppStr(jni.env(), nullptr); }), "JNI_exception");
    EXPECT_EQ(idOf([&] { qxbase::jStr2CppWStr(jni.env(), nullptr); }), "JNI_exception");
}

TEST(JavaText, APendingExceptionIsClearedBeforeRaising)
{
    qxtest::FakeJni jni;
    jni.table.NewString = [](JNIEnv* env, const jchar*, jsize) -> jstring {
        qxtest::FakeJni::of(env).calls.push_back("NewString");
        qxtest::FakeJni::of(env).pending = true; // as after an OutOfMemoryError
        return nullptr;
    };

    EXPECT_EQ(idOf([&] { qxbase::toJavaNew(jni.env(), std::string("x")); }), "JNI_exception");

    EXPECT_FALSE(jni.pending);
    EXPECT_THAT(jni.calls, ElementsAre("ExceptionCheck", "NewString", "ExceptionCheck", "ExceptionClear"));
}

TEST(JavaText, AFailureWhileReadingIsClearedBeforeRaising)
{
    qxtest::FakeJni jni;
    jni.table.GetStringRegion = [](JNIEnv* env, jstring, jsize, jsize, jchar*) { qxtest::FakeJni::of(env).pending = true; };

    EXPECT_EQ(idOf([&] { qxbase::jStr2CppStr(jni.env(), jni.string(u"x")); }), "JNI_exception");

    EXPECT_FALSE(jni.pending);
}

TEST(JavaText, AnExceptionPendingBeforehandRaisesBeforeAnyOtherCall)
{
    for (const auto handling : {PendingException::Clear, PendingException::Keep}) {
        const bool kept = handling == PendingException::Keep;
        const std::vector<std::function<void(qxtest::FakeJni&)>> conversions = {
            [&](auto& jni) { qxbase::jStr2CppStr(jni.env(), jni.string(u"x"), handling); },
            [&](auto& jni) { qxbase::jStr2CppWStr(jni.env(), jni.string(u"x"), handling); },
            [&](auto& jni) { qxbase::toJavaNew(jni.env(), std::string("x"), handling); },
            [&](auto& jni) { qxbase::toJavaNew(jni.env(), std::wstring(L"x"), handling); }};
        for (const auto& convert : conversions) {
            qxtest::FakeJni jni;
            jni.pending = true;

            EXPECT_EQ(idOf([&] { convert(jni); }), "JNI_exception");

            EXPECT_EQ(jni.pending, kept);
            EXPECT_THAT(jni.calls, Each(testing::StartsWith("Exception")));
        }
    }
}

TEST(JavaText, AFailureKeepsItsExceptionPendingWhenAsked)
{
    qxtest::FakeJni jni;
    jni.table.NewString = [](JNIEnv* env, const jchar*, jsize) -> jstring {
        qxtest::FakeJni::of(env).pending = true;
        return nullptr;
    };

    EXPECT_EQ(idOf([&] { qxbase::toJavaNew(jni.env(), std::string("x"), PendingException::Keep); }), "JNI_exception");

    EXPECT_TRUE(jni.pending);
}
