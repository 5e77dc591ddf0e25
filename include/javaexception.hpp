// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"
#include "qxexport.hpp"

struct JNIEnv_; // of jni.h, by name only: this header needs no Java headers

namespace qxbase {

/// Names, like "org/example/KernelException", of the host's own Java classes for failures. Lent for the call.
///
/// They need a constructor (String identifier, String[] arguments, String story, Throwable cause): the innermost
/// identifier, the arguments of all entries as key, value, key, value ..., the whole stack of entries as text, and the
/// Java exception that was pending, or null.
struct JavaFailureClasses
{
    /// For Exception; null: java.lang.RuntimeException with the story as its message.
    const char* failure = nullptr;
    /// For CancelException; null: java.util.concurrent.CancellationException likewise.
    const char* cancelled = nullptr;
};

/// Makes a failure the pending Java exception, for a native method to return with. A Java exception that is pending
/// becomes its cause. If the host's class is missing the standard one is taken; if Java fails (no memory) its own
/// exception is pending instead: afterwards there always is one, and nothing is raised here.
QX_API void throwToJava(JNIEnv_* env, const Exception& failure, const JavaFailureClasses& classes = {}) noexcept;

/// The same with the exception that is being handled, inside a catch block. std::bad_alloc becomes
/// java.lang.OutOfMemoryError, any other std::exception a failure "Unexpected_exception" with the argument "What".
QX_API void throwToJava(JNIEnv_* env, const JavaFailureClasses& classes = {}) noexcept;

/// The value of work(), or that of an empty R after what it raised was thrown to Java: the body of a native method.
template <class Work>
auto guardJava(JNIEnv_* env, const JavaFailureClasses& classes, Work&& work) -> decltype(work())
{
    try {
        return work();
    } catch (...) {
        throwToJava(env, classes);
        return decltype(work())();
    }
}

} // namespace qxbase
