// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <jni.h>

namespace qxcallback {

/// Clears the pending Java exception, if there is one, and tells what it was: "Exception" with its toString(), "Stack" up
/// to 20 times with a line of its stack. What cannot be found out is left out; nothing is raised, nothing is pending.
qxbase::ExceptionArgs takeStory(JNIEnv* env) noexcept;

/// Drops what is remembered of Java methods: it belongs to one virtual machine, and tests have several.
void forgetMethods();

} // namespace qxcallback
