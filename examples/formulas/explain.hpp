#pragma once

#include "qxexception.hpp"

#include <string>

namespace examples {

/// The story of a failure for the person who typed the formula: one indented line an entry, from the function that failed
/// through the definitions that used it to the whole formula. Identifiers without a wording here are shown as they are.
std::string explain(const qxbase::Exception& failure);

} // namespace examples
