// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <string>

// The types of jni.h by name only, so that this header needs no Java headers; include jni.h to use them.
struct JavaVM_;
struct JNIEnv_;
class _jobject;
class _jclass;
class _jstring;

namespace qxbase {

/// Access to the Java virtual machine of the process. No virtual machine is linked, started or stopped here.
class QX_API QxJCall
{
public:
    /// The virtual machine: the one handed over by JNI_OnLoad (when Java loaded this library) or by setVM, else one that
    /// runs in the process, found through JNI_GetCreatedJavaVMs; null when there is none. One that was found is kept: Java
    /// allows one a process, and it cannot be started again. Cheap, also when it is null. Threads: any.
    static JavaVM_* getVM();
    /// For hosts and tests: the virtual machine to use; null: look for one again. vm is lent for good.
    static void setVM(JavaVM_* vm);
    /// The loader that findClass asks for classes that FindClass does not find; null: none. Kept as a global reference
    /// until the next call. JNI_OnLoad takes the context class loader of the thread that loads this library.
    /// Raises "JNI_exception" (qxjni) if a Java exception is pending or Java refuses; the exception stays pending then,
    /// and the loader as it was. Threads: any attached one.
    static void setClassLoader(JNIEnv_* env, _jobject* loader);
};

/// The class with a name like "java/lang/String" as a local reference, or null with the Java exception left pending.
///
/// FindClass looks with the loader of the Java method that called native code, and with the system class loader on a
/// thread that native code attached; a class that is not there is looked for with the known loader (setClassLoader).
QX_API _jclass* findClass(JNIEnv_* env, const char* name);

/// What a failing text conversion does with a pending Java exception before it raises: clear it, so that Java may be
/// called again, or keep it for the Java method that called native code.
enum class PendingException { Clear, Keep };

/// Java text to UTF-8, and to wide characters of 32 bits. Surrogates without a partner become U+FFFD.
/// Raises "JNI_exception" (qxjni) for a null string, a failing call, or an exception that is pending already.
QX_API std::string jStr2CppStr(JNIEnv_* env, _jstring* text, PendingException pending = PendingException::Clear);
QX_API std::wstring jStr2CppWStr(JNIEnv_* env, _jstring* text, PendingException pending = PendingException::Clear);

/// A new Java string (a local reference) from UTF-8 or wide characters. Bytes that are not UTF-8 become U+FFFD.
/// Raises "JNI_exception" (qxjni) when Java has no memory for it, the text more than 2^31 - 1 units, or an exception is
/// pending already.
QX_API _jstring* toJavaNew(JNIEnv_* env, const std::string& text, PendingException pending = PendingException::Clear);
QX_API _jstring* toJavaNew(JNIEnv_* env, const std::wstring& text, PendingException pending = PendingException::Clear);

} // namespace qxbase

namespace qxutil {

class QX_API VMData
{
public:
    /// The calling thread's JNI environment; null when it is not attached or there is no virtual machine.
    static JNIEnv_* getJNIEnv();
};

/// Attaches the calling thread to the virtual machine for a scope, as a daemon: the machine does not wait for it at its
/// end. A thread that was attached before (a Java thread, or an outer scope) stays so afterwards. Attaching and detaching
/// cost some 15 microseconds: hold an outer scope around many calls. Without a virtual machine, or when it refuses, nothing happens and
/// VMData::getJNIEnv() stays null. To be destroyed on the thread that made it.
class QX_API AttachThread
{
public:
    AttachThread();
    ~AttachThread() { clear(); }
    AttachThread(const AttachThread&) = delete;
    AttachThread& operator=(const AttachThread&) = delete;

    /// Ends the attachment now, if this object made it.
    void clear();

private:
    JavaVM_* attachedTo_ = nullptr;
};

} // namespace qxutil
