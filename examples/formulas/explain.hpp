#pragma once

#include "qxexception.hpp"

#include <functional>
#include <string>

namespace examples {

/// The story of a failure for the person who typed the formula: one indented line an entry, from the function that failed
/// through the definitions that used it to the whole formula. Identifiers without a wording here are shown as they are.
std::string explain(const qxbase::Exception& failure);

/// The story of what stops some evaluation; empty if nothing does.
std::string storyOf(const std::function<void()>& evaluation);

} // namespace examples
