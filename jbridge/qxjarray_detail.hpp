// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "base/qxjni_detail.hpp"
#include "jniarrayutil.hpp"
#include "qxexception.hpp"

#include <cstddef>
#include <jni.h>
#include <limits>
#include <new>
#include <stdexcept>

namespace qxarray {

using qxbase::LocalRef;

/// The JNI functions for arrays of one number type. T has the size of the Java type; only the name may differ.
template <class T>
struct JavaNumbers;

#define QX_JAVA_NUMBERS(T, J, Name)                                                                          \
    template <>                                                                                              \
    struct JavaNumbers<T>                                                                                    \
    {                                                                                                        \
        static_assert(sizeof(T) == sizeof(J));                                                               \
        using Java = J##Array;                                                                               \
        static Java make(JNIEnv* env, jsize n) { return env->New##Name##Array(n); }                          \
        static void get(JNIEnv* env, Java a, jsize from, jsize n, T* to)                                     \
        {                                                                                                    \
            env->Get##Name##ArrayRegion(a, from, n, reinterpret_cast<J*>(to));                               \
        }                                                                                                    \
        static void set(JNIEnv* env, Java a, jsize from, jsize n, const T* values)                           \
        {                                                                                                    \
            env->Set##Name##ArrayRegion(a, from, n, reinterpret_cast<const J*>(values));                     \
        }                                                                                                    \
        static T* pin(JNIEnv* env, Java a, jboolean* isCopy)                                                 \
        {                                                                                                    \
            return reinterpret_cast<T*>(env->Get##Name##ArrayElements(a, isCopy));                           \
        }                                                                                                    \
        static void release(JNIEnv* env, Java a, T* elements, jint mode)                                     \
        {                                                                                                    \
            env->Release##Name##ArrayElements(a, reinterpret_cast<J*>(elements), mode);                      \
        }                                                                                                    \
    };
QX_JAVA_NUMBERS(signed char, jbyte, Byte)
QX_JAVA_NUMBERS(unsigned short, jshort, Short)
QX_JAVA_NUMBERS(int, jint, Int)
QX_JAVA_NUMBERS(long long, jlong, Long)
QX_JAVA_NUMBERS(float, jfloat, Float)
QX_JAVA_NUMBERS(double, jdouble, Double)
#undef QX_JAVA_NUMBERS

/// Failing allocations leave work as this module's identifier.
template <class Work>
auto raisingOutOfMemory(Work&& work)
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        QX_RAISE("qxjarray", "Out_of_memory_array_processing");
    } catch (const std::length_error&) {
        QX_RAISE("qxjarray", "Out_of_memory_array_processing");
    }
}

/// A length that Java can hold.
inline jsize javaSize(std::size_t n)
{
    if (n > static_cast<std::size_t>(std::numeric_limits<jsize>::max()))
        QX_RAISE("qxjarray", "Matrix_too_large_for_JNI_interface");
    return static_cast<jsize>(n);
}

/// Total of a shape whose extents Java can hold.
inline jsize javaTotal(jsize m, jsize n) { return javaSize(static_cast<std::size_t>(m) * static_cast<std::size_t>(n)); }

} // namespace qxarray
