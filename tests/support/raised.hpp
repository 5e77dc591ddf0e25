#pragma once

#include "qxexception.hpp"

#include <string>

namespace qxtest {

/// The identifier of the failure that act raises, "nothing raised" if it raises none.
template <class F>
std::string idOf(F act)
{
    try {
        act();
    } catch (const qxbase::Exception& e) {
        return e.getId();
    }
    return "nothing raised";
}

} // namespace qxtest
