// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <jni.h>

#include <string>
#include <vector>

namespace qxtest {

/// A Java virtual machine in this process, started at the first call with this class path and kept until the end: Java
/// allows one a process. It is not linked but opened from JAVA_HOME or the system's default Java; null if there is none.
/// The calling thread is attached to it. It checks every JNI call (-Xcheck:jni) and has a heap of 64 MB.
JavaVM* startVM(const std::string& classPath = "", std::vector<std::string> extraOptions = {});

/// Opens the library of the virtual machine, without starting one. False if there is none.
bool openJavaLibrary();

/// What the machine has found wrong with JNI calls so far: lines of its output that are such warnings.
int jniWarnings();
bool isJniWarning(const std::string& line);

} // namespace qxtest
