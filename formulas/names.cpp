// SPDX-License-Identifier: LicenseRef-qxkernel
#include "names_detail.hpp"

#include <algorithm>

namespace qx {

namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

bool isName(const std::string& name)
{
    return !name.empty() && isLetter(name[0]) &&
           std::all_of(name.begin(), name.end(), [](char c) { return isLetter(c) || isDigit(c); });
}

} // namespace qx
