// SPDX-License-Identifier: LicenseRef-qxkernel
// The platform's parser class in a build without Java: text is read by the library's own converter.

#include "base/qxjni_absent_detail.hpp"
#include "exprimpl.hpp"
#include "qxexception.hpp"

std::string qxInfixToPrefixByJava(const std::string&)
{
    QX_RAISE("exprimpl", "Internal_error_callback", "Reason", qxbase::builtWithoutJava);
}
