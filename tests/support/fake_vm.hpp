// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxjni.hpp"

#include <jni.h>

#include <string>
#include <vector>

namespace qxtest {

/// A virtual machine that notes what is asked of it, with a JNI environment Jni; the library's while it lives. One at a
/// time.
template <class Jni>
class FakeVM
{
public:
    FakeVM()
    {
        current = this;
        table.GetEnv = [](JavaVM*, void** env, jint) -> jint {
            *env = current->attached ? current->jni.env() : nullptr;
            return current->attached ? JNI_OK : JNI_EDETACHED;
        };
        table.AttachCurrentThreadAsDaemon = [](JavaVM*, void** env, void*) -> jint { // its end does not wait for a daemon
            current->calls.push_back("attach");
            if (current->refuses)
                return JNI_ERR;
            current->attached = true;
            *env = current->jni.env();
            return JNI_OK;
        };
        table.DetachCurrentThread = [](JavaVM*) -> jint {
            current->calls.push_back("detach");
            current->attached = false;
            return JNI_OK;
        };
        vm.functions = &table;
        qxbase::QxJCall::setVM(&vm);
    }
    ~FakeVM() { qxbase::QxJCall::setVM(nullptr); }
    FakeVM(const FakeVM&) = delete;
    FakeVM& operator=(const FakeVM&) = delete;

    bool attached = false;
    bool refuses = false;
    std::vector<std::string> calls;
    JavaVM vm{};
    Jni jni;

private:
    JNIInvokeInterface_ table{};
    static inline FakeVM* current = nullptr;
};

} // namespace qxtest
