// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <javaexception.hpp>
#include <qxjarray.hpp>

#include <jni.h>

#include <string>
#include <vector>

/// What the native methods of this example share.
namespace examples {

/// The body of a native method: what it raises becomes an exception of this package.
template <class Work>
auto nativeMethod(JNIEnv* env, Work&& work)
{
    return qxbase::guardJava(env, {"qx/KernelException", "qx/CancelledException"}, work);
}

inline std::string text(JNIEnv* env, jstring java)
{
    return qxbase::jStr2CppStr(env, java, qxbase::PendingException::Keep);
}

inline std::vector<std::string> texts(JNIEnv* env, jobjectArray java)
{
    std::vector<std::string> list;
    qxarray::toCpp(env, java, list);
    return list;
}

/// Java holds the address of an object as a long, and gives it back when the object is closed.
template <class T>
T& objectAt(jlong address)
{
    return *reinterpret_cast<T*>(address);
}
template <class T>
jlong addressOf(T* object)
{
    return reinterpret_cast<jlong>(object);
}

} // namespace examples
