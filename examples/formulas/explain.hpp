// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <string>

namespace examples {

/// The story of a failure for the person who typed the formula: one indented line an entry, from the function that failed
/// through the definitions that used it to the whole formula. Identifiers without a wording here are shown as they are;
/// the entries that name formula, definition and point (In_formula and others) are for the caller and are left out.
std::string explain(const qxbase::Exception& failure);

/// An argument of the last entry with that identifier; empty if there is none.
std::string argumentOf(const qxbase::Exception& failure, const std::string& id, const std::string& key);

} // namespace examples
