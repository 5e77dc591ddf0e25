// SPDX-License-Identifier: LicenseRef-qxkernel
// Classes that the system class loader does not know. A program of its own: its virtual machine has an empty class path.
#include "callback.hpp"
#include "qxjni.hpp"

#include "support/failure.hpp"
#include "support/java_vm.hpp"

#include <gtest/gtest.h>

#include <thread>

using qxbase::QxJCall;
using qxtest::idOf;

namespace {

class ClassesElsewhere : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!*QX_TEST_CLASSES || !qxtest::startVM())
            GTEST_SKIP() << "no Java on this machine";
        env = qxutil::VMData::getJNIEnv();
        env->PushLocalFrame(64);
    }
    void TearDown() override
    {
        if (!env)
            return;
        QxJCall::setClassLoader(env, nullptr);
        env->PopLocalFrame(nullptr);
        EXPECT_FALSE(env->ExceptionCheck());
        EXPECT_EQ(qxtest::jniWarnings(), 0);
    }

    jobject make(const char* className, const char* signature, const jvalue* arguments)
    {
        jclass type = env->FindClass(className);
        jobject made = env->NewObjectA(type, env->GetMethodID(type, "<init>", signature), arguments);
        EXPECT_FALSE(env->ExceptionCheck());
        return made;
    }
    /// new URLClassLoader({new URL("file:directory/")})
    jobject loaderOf(const std::string& directory)
    {
        jvalue text{.l = qxbase::toJavaNew(env, "file:" + directory + "/")};
        jobject url = make("java/net/URL", "(Ljava/lang/String;)V", &text);
        jvalue urls{.l = env->NewObjectArray(1, env->GetObjectClass(url), url)};
        return make("java/net/URLClassLoader", "([Ljava/net/URL;)V", &urls);
    }
    void use(const std::string& directory) { QxJCall::setClassLoader(env, loaderOf(directory)); }
    int last()
    {
        jclass type = qxbase::findClass(env, "com/quorix/solver/SolverCallback");
        return env->GetStaticIntField(type, env->GetStaticFieldID(type, "last", "I"));
    }
    int evalMat()
    {
        std::vector<double> none;
        return Callback::evalMat("status", none, none, env);
    }

    JNIEnv* env = nullptr;
};

} // namespace

// In this order: a method that was found is remembered.

TEST_F(ClassesElsewhere, AMissingClassIsAnInternalErrorThatNamesIt)
{
    const qxbase::Exception e = qxtest::failureOf([] { Callback::solverCallback(1); });
    EXPECT_EQ(e.getId(), "Internal_error_callback");
    EXPECT_EQ(e.getArgs(0)[0].second, "java.lang.NoClassDefFoundError: com/quorix/solver/SolverCallback");
    EXPECT_EQ(idOf([&] { evalMat(); }), "Internal_error_callback");
    EXPECT_FALSE(env->ExceptionCheck());

    use(QX_OTHER_CLASSES); // has no MatlabEvaluator either
    EXPECT_EQ(idOf([&] { evalMat(); }), "Internal_error_callback");
    EXPECT_FALSE(env->ExceptionCheck());
}

TEST_F(ClassesElsewhere, AMissingMethodOrAWrongSignatureIsAnInternalError)
{
    use(QX_WRONG_CLASSES);

    EXPECT_EQ(idOf([] { Callback::solverCallback(1); }), "Internal_error_callback");
    EXPECT_EQ(idOf([&] { evalMat(); }), "Internal_error_callback");
    EXPECT_FALSE(env->ExceptionCheck());
}

TEST_F(ClassesElsewhere, TheKnownLoaderFindsThemOnEveryThread)
{
    use(QX_TEST_CLASSES);

    Callback::solverCallback(5);
    EXPECT_EQ(last(), 5);
    std::thread([] { Callback::solverCallback(6); }).join();
    EXPECT_EQ(last(), 6);
    EXPECT_EQ(evalMat(), 7);
}

TEST_F(ClassesElsewhere, AnotherClassOfTheSameNameIsNoticed)
{
    use(QX_TEST_CLASSES);
    Callback::solverCallback(5);

    use(QX_OTHER_CLASSES);
    Callback::solverCallback(8);

    EXPECT_EQ(last(), -8) << "its own method was called, not the one that is remembered";
}

TEST_F(ClassesElsewhere, APendingExceptionKeepsTheLoaderThatWasKnown)
{
    use(QX_TEST_CLASSES);
    jobject other = loaderOf(QX_OTHER_CLASSES);
    ASSERT_EQ(env->FindClass("no/such/Class"), nullptr);

    EXPECT_EQ(idOf([&] { QxJCall::setClassLoader(env, other); }), "JNI_exception");

    EXPECT_TRUE(env->ExceptionCheck());
    env->ExceptionClear();
    Callback::solverCallback(9);
    EXPECT_EQ(last(), 9);
}
