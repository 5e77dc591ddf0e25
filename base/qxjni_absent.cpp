// SPDX-License-Identifier: LicenseRef-qxkernel
// Access to Java in a build without it: there is no virtual machine, ever.

#include "qxjni.hpp"

#include "base/qxjni_absent_detail.hpp"
#include "qxexception.hpp"

namespace qxbase {

namespace {

[[noreturn]] void raiseAbsent() { QX_RAISE("qxjni", "JNI_exception", "Reason", builtWithoutJava); }

} // namespace

JavaVM_* QxJCall::getVM() { return nullptr; }
void QxJCall::setVM(JavaVM_*) {}
void QxJCall::setClassLoader(JNIEnv_*, _jobject*) { raiseAbsent(); }

_jclass* findClass(JNIEnv_*, const char*) { return nullptr; }
std::string jStr2CppStr(JNIEnv_*, _jstring*, PendingException) { raiseAbsent(); }
std::wstring jStr2CppWStr(JNIEnv_*, _jstring*, PendingException) { raiseAbsent(); }
_jstring* toJavaNew(JNIEnv_*, const std::string&, PendingException) { raiseAbsent(); }
_jstring* toJavaNew(JNIEnv_*, const std::wstring&, PendingException) { raiseAbsent(); }

} // namespace qxbase

namespace qxutil {

JNIEnv_* VMData::getJNIEnv() { return nullptr; }

AttachThread::AttachThread() = default;
void AttachThread::clear() {}

} // namespace qxutil
