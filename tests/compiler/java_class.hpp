// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "support/java_vm.hpp"

#include <jni.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace qxtest {

/// A generated class in the virtual machine of this process, verified and linked.
class JavaClass
{
public:
    /// The calling thread must be attached. Throws std::runtime_error with the machine's own words if the class is refused.
    JavaClass(JNIEnv* env, const std::vector<unsigned char>& bytes, const std::string& method, jobject loader) : env_(env)
    {
        env->PushLocalFrame(16);
        const jclass defined = env->DefineClass(nullptr, loader, reinterpret_cast<const jbyte*>(bytes.data()),
                                                static_cast<jsize>(bytes.size()));
        raiseIfPending("defining");
        class_ = static_cast<jclass>(env->NewGlobalRef(defined));
        method_ = env->GetStaticMethodID(class_, method.c_str(), "([D[D)I"); // links and verifies
        raiseIfPending("linking");
        env->PopLocalFrame(nullptr);
    }
    ~JavaClass() { env_->DeleteGlobalRef(class_); }
    JavaClass(const JavaClass&) = delete;
    JavaClass& operator=(const JavaClass&) = delete;

    /// The status; out is what the class stored in an array that was full of `before`.
    int run(const std::vector<double>& in, std::vector<double>& out, std::size_t nOutputs, double before = 0) const
    {
        env_->PushLocalFrame(16);
        const auto length = [](std::size_t n) { return static_cast<jsize>(n); };
        const jdoubleArray x = env_->NewDoubleArray(length(in.size())), y = env_->NewDoubleArray(length(nOutputs));
        out.assign(nOutputs, before);
        env_->SetDoubleArrayRegion(x, 0, length(in.size()), in.data());
        env_->SetDoubleArrayRegion(y, 0, length(nOutputs), out.data());
        const int status = env_->CallStaticIntMethod(class_, method_, x, y);
        raiseIfPending("running");
        env_->GetDoubleArrayRegion(y, 0, length(nOutputs), out.data());
        env_->PopLocalFrame(nullptr);
        return status;
    }

    int staticInt(const char* field) const
    {
        const jfieldID id = env_->GetStaticFieldID(class_, field, "I");
        raiseIfPending(field);
        return env_->GetStaticIntField(class_, id);
    }

private:
    void raiseIfPending(const char* doing) const
    {
        const jthrowable thrown = env_->ExceptionOccurred();
        if (!thrown)
            return;
        env_->ExceptionClear();
        const jclass object = env_->FindClass("java/lang/Object");
        const auto text = static_cast<jstring>(
            env_->CallObjectMethod(thrown, env_->GetMethodID(object, "toString", "()Ljava/lang/String;")));
        env_->ExceptionClear();
        const char* const characters = env_->GetStringUTFChars(text, nullptr);
        const std::string message = std::string(doing) + ": " + characters;
        env_->ReleaseStringUTFChars(text, characters);
        env_->PopLocalFrame(nullptr);
        throw std::runtime_error(message);
    }

    JNIEnv* env_;
    jclass class_ = nullptr;
    jmethodID method_ = nullptr;
};

/// The machine, started with verification of every class, and the loader of generated ones.
struct JavaMachine
{
    JNIEnv* env = nullptr;
    jobject loader = nullptr;

    static JavaMachine& get()
    {
        static JavaMachine machine = [] {
            JavaMachine m;
            JavaVM* const vm = startVM("", {"-Xverify:all"});
            if (!vm || vm->GetEnv(reinterpret_cast<void**>(&m.env), JNI_VERSION_1_8) != JNI_OK)
                return m;
            m.env->PushLocalFrame(8);
            const jclass loaders = m.env->FindClass("java/lang/ClassLoader");
            const jmethodID system = m.env->GetStaticMethodID(loaders, "getSystemClassLoader", "()Ljava/lang/ClassLoader;");
            m.loader = m.env->NewGlobalRef(m.env->CallStaticObjectMethod(loaders, system));
            m.env->PopLocalFrame(nullptr);
            return m;
        }();
        return machine;
    }
};

} // namespace qxtest
