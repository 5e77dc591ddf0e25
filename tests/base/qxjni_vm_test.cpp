// SPDX-License-Identifier: LicenseRef-qxkernel
// VM access with a real virtual machine in the process. A program of its own: the machine stays until its end.
#include "qxjni.hpp"

#include "qxexception.hpp"
#include "support/java_vm.hpp"

#include <gtest/gtest.h>

#include <jni.h>

#include <thread>

using qxbase::QxJCall;
using qxutil::AttachThread;
using qxutil::VMData;

namespace {

class RealVM : public testing::Test
{
protected:
    void SetUp() override
    {
        vm = qxtest::startVM();
        if (!vm)
            GTEST_SKIP() << "no Java on this machine";
        env = VMData::getJNIEnv();
        ASSERT_NE(env, nullptr);
    }
    void TearDown() override { EXPECT_EQ(qxtest::jniWarnings(), 0); }

    JavaVM* vm = nullptr;
    JNIEnv* env = nullptr;
};

void onAnotherThread(const std::function<void()>& work) { std::thread(work).join(); }

} // namespace

TEST(AVMThatIsNotThereYet, IsFoundOnceItRuns)
{
    EXPECT_EQ(QxJCall::getVM(), nullptr);
    if (!qxtest::openJavaLibrary())
        GTEST_SKIP() << "no Java on this machine";
    EXPECT_EQ(QxJCall::getVM(), nullptr);

    JavaVM* vm = qxtest::startVM();

    ASSERT_NE(vm, nullptr);
    EXPECT_EQ(QxJCall::getVM(), vm);
}

TEST_F(RealVM, ThreadsAreAttachedForAScope)
{
    onAnotherThread([] {
        EXPECT_EQ(VMData::getJNIEnv(), nullptr);
        {
            const AttachThread outer;
            JNIEnv* attached = VMData::getJNIEnv();
            EXPECT_NE(attached, nullptr);
            {
                const AttachThread inner;
                EXPECT_EQ(VMData::getJNIEnv(), attached);
            }
            EXPECT_EQ(VMData::getJNIEnv(), attached);
        }
        EXPECT_EQ(VMData::getJNIEnv(), nullptr);
    });
}

TEST_F(RealVM, AThreadAttachedByItsHostStaysAttached)
{
    onAnotherThread([this] {
        void* own = nullptr;
        ASSERT_EQ(vm->AttachCurrentThread(&own, nullptr), JNI_OK);
        {
            AttachThread scope;
            scope.clear();
        }
        EXPECT_EQ(VMData::getJNIEnv(), own);
        vm->DetachCurrentThread();
    });
}

TEST_F(RealVM, ClearEndsTheAttachmentEarly)
{
    onAnotherThread([] {
        AttachThread scope;
        EXPECT_NE(VMData::getJNIEnv(), nullptr);
        scope.clear();
        EXPECT_EQ(VMData::getJNIEnv(), nullptr);
    });
}

TEST_F(RealVM, FindsAClassOrLeavesTheExceptionPending)
{
    EXPECT_NE(qxbase::findClass(env, "java/lang/String"), nullptr);

    EXPECT_EQ(qxbase::findClass(env, "com/quorix/NotThere"), nullptr);
    EXPECT_TRUE(env->ExceptionCheck());
    env->ExceptionClear();
}

TEST_F(RealVM, AThreadThatNativeCodeAttachesIsADaemon)
{
    onAnotherThread([] {
        const AttachThread scope;
        JNIEnv* attached = VMData::getJNIEnv();
        jclass type = qxbase::findClass(attached, "java/lang/Thread");
        jmethodID current = attached->GetStaticMethodID(type, "currentThread", "()Ljava/lang/Thread;");
        jmethodID daemon = attached->GetMethodID(type, "isDaemon", "()Z");
        jobject thread = attached->CallStaticObjectMethod(type, current);
        ASSERT_FALSE(attached->ExceptionCheck());

        EXPECT_TRUE(attached->CallBooleanMethod(thread, daemon)) << "the end of the machine would wait for it";

        EXPECT_FALSE(attached->ExceptionCheck());
    });
}

TEST_F(RealVM, TextTravelsBothWays)
{
    const std::string text = "T\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80 1+2";

    jstring java = qxbase::toJavaNew(env, text);

    EXPECT_EQ(env->GetStringLength(java), 9); // one unit a character, two for the last of the four
    EXPECT_EQ(qxbase::jStr2CppStr(env, java), text);
    EXPECT_EQ(qxbase::jStr2CppWStr(env, java), L"T\u00e9\u20ac\U0001F600 1+2");
    EXPECT_EQ(qxbase::jStr2CppStr(env, qxbase::toJavaNew(env, std::wstring(L"\u00e9"))), "\xc3\xa9");
}

TEST_F(RealVM, ANullStringRaisesAndNoExceptionIsPending)
{
    ASSERT_EQ(qxbase::findClass(env, "com/quorix/NotThere"), nullptr); // leaves one pending

    EXPECT_THROW(qxbase::jStr2CppStr(env, nullptr), qxbase::Exception);

    EXPECT_FALSE(env->ExceptionCheck());
}

TEST_F(RealVM, AVMHandedOverGoesBeforeTheOneInTheProcess)
{
    JavaVM other{};
    QxJCall::setVM(&other);
    EXPECT_EQ(QxJCall::getVM(), &other);

    QxJCall::setVM(nullptr);
    EXPECT_EQ(QxJCall::getVM(), vm);
    EXPECT_EQ(QxJCall::getVM(), vm) << "kept once found";
}
