// SPDX-License-Identifier: LicenseRef-qxkernel
// What happens once, when qx.Library has loaded this library.
#include "support.hpp"

#include <exprimpl.hpp>

/// Formulas are read by the kernel's own grammar. Without this call it asks the platform's parser class as soon as there
/// is a Java virtual machine, and this program has no such class.
extern "C" JNIEXPORT void JNICALL Java_qx_Library_start(JNIEnv*, jclass)
{
    setInfixConverter(qxInfixToPrefix);
}
