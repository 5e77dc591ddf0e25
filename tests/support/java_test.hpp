// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxjni.hpp"
#include "support/java_vm.hpp"

#include <gtest/gtest.h>

#include <string>

namespace qxtest {

/// A test with a real virtual machine: skipped without Java; afterwards nothing is pending and no JNI call was wrong.
class JavaTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!*QX_TEST_CLASSES || !startVM(QX_TEST_CLASSES))
            GTEST_SKIP() << "no Java on this machine";
        env = qxutil::VMData::getJNIEnv();
        ASSERT_NE(env, nullptr);
        ASSERT_EQ(env->PushLocalFrame(64), 0);
    }
    void TearDown() override
    {
        if (!env)
            return;
        EXPECT_FALSE(env->ExceptionCheck());
        env->ExceptionClear();
        env->PopLocalFrame(nullptr);
        EXPECT_EQ(jniWarnings(), 0);
    }

    /// Clears the pending exception and gives the name of its class; empty without one.
    std::string takePending()
    {
        jthrowable pending = env->ExceptionOccurred();
        env->ExceptionClear();
        return pending ? classOf(pending) : "";
    }
    std::string classOf(jobject object) { return ask(env->GetObjectClass(object), "getName"); }
    /// The text that a method without arguments gives.
    std::string ask(jobject object, const char* method)
    {
        jclass type = env->GetObjectClass(object);
        jmethodID id = env->GetMethodID(type, method, "()Ljava/lang/String;");
        auto text = static_cast<jstring>(env->CallObjectMethod(object, id));
        EXPECT_FALSE(env->ExceptionCheck());
        return text ? qxbase::jStr2CppStr(env, text) : "null";
    }
    /// The value of a static int field.
    int staticInt(const char* className, const char* field)
    {
        jclass type = qxbase::findClass(env, className);
        return env->GetStaticIntField(type, env->GetStaticFieldID(type, field, "I"));
    }

    JNIEnv* env = nullptr;
};

} // namespace qxtest
