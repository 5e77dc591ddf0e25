// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

namespace qxbase {

/// The "Reason" of what fails for want of Java in a library built without it.
inline constexpr const char* builtWithoutJava = "This library was built without Java (QX_WITH_JAVA=OFF)";

} // namespace qxbase
