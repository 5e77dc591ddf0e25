#pragma once

#include "qxexport.hpp"

#include <string>

// The types of jni.h by name only, so that this header needs no Java headers; include jni.h to use them.
struct JavaVM_;
struct JNIEnv_;
class _jclass;
class _jstring;

namespace qxbase {

/// Access to the Java virtual machine of the process. No virtual machine is linked, started or stopped here.
class QX_API QxJCall
{
public:
    /// The virtual machine: the one handed over by JNI_OnLoad (when Java loaded this library) or by setVM, else one that
    /// runs in the process, found through JNI_GetCreatedJavaVMs; null when there is none. Cheap, also when it is null.
    /// Threads: any.
    static JavaVM_* getVM();
    /// For hosts and tests: the virtual machine to use; null: look for one again. vm is lent for good.
    static void setVM(JavaVM_* vm);
};

/// The class with a name like "java/lang/String" as a local reference, or null with the Java exception left pending.
QX_API _jclass* findClass(JNIEnv_* env, const char* name);

/// Java text to UTF-8, and to wide characters of 32 bits. Surrogates without a partner become U+FFFD.
/// Raises "JNI_exception" for a null string or a failing call; a pending Java exception is cleared before that.
QX_API std::string jStr2CppStr(JNIEnv_* env, _jstring* text);
QX_API std::wstring jStr2CppWStr(JNIEnv_* env, _jstring* text);

/// A new Java string (a local reference) from UTF-8 or wide characters. Bytes that are not UTF-8 become U+FFFD.
/// Raises "JNI_exception" when Java has no memory for it, or the text more than 2^31 - 1 units.
QX_API _jstring* toJavaNew(JNIEnv_* env, const std::string& text);
QX_API _jstring* toJavaNew(JNIEnv_* env, const std::wstring& text);

} // namespace qxbase

namespace qxutil {

class QX_API VMData
{
public:
    /// The calling thread's JNI environment; null when it is not attached or there is no virtual machine.
    static JNIEnv_* getJNIEnv();
};

/// Attaches the calling thread to the virtual machine for a scope. A thread that was attached before (a Java thread, or
/// an outer scope) stays so afterwards. Without a virtual machine, or when it refuses, nothing happens and
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
