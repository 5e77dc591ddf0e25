// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed.hpp"

/// The ranks that a test program runs on.
const qx::distributed::Session& world();

/// Identifiers of a failure of all ranks.
inline std::string argumentOf(const qxbase::Exception& e, const std::string& id, const std::string& key)
{
    for (std::size_t i = e.size(); i-- > 0;)
        if (e.getId(i) == id)
            for (const auto& [name, value] : e.getArgs(i))
                if (name == key)
                    return value;
    return {};
}
