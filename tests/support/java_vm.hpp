#pragma once

#include <jni.h>

#include <string>

namespace qxtest {

/// A Java virtual machine in this process, started at the first call with this class path and kept until the end: Java
/// allows one a process. It is not linked but opened from JAVA_HOME or the system's default Java; null if there is none.
/// The calling thread is attached to it.
JavaVM* startVM(const std::string& classPath = "");

/// Opens the library of the virtual machine, without starting one. False if there is none.
bool openJavaLibrary();

} // namespace qxtest
