// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formula.hpp"

#include "support/options.hpp"

namespace examples {

Formula Formula::parse(const std::string& typed)
{
    const std::size_t equal = typed.find('=');
    const std::string left = typed.substr(0, equal);
    const bool named = equal != std::string::npos && equal > 0 &&
                       typed.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_ ") ==
                           equal &&
                       typed.compare(equal, 2, "==") != 0;
    if (!named)
        return {typed, typed};
    return {split(left, '=').front(), typed.substr(equal + 1)};
}

} // namespace examples
