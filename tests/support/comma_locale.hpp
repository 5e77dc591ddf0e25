// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <locale>

namespace qxtest {

/// For a scope: the process runs under a locale with decimal comma and grouped thousands, in C and in C++ streams.
/// The locale is compiled on the spot, so none has to be installed. Restores the former ones at the end.
class CommaLocale
{
public:
    CommaLocale();
    ~CommaLocale();
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    /// Whether printf and streams write a comma now: to be asserted, else a test under this scope proves nothing.
    static bool isInForce();

private:
    std::locale former_;
};

} // namespace qxtest
