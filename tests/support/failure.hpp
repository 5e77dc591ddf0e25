// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"

#include <string>

/// What leaves a piece of work as a failure of the library.
namespace qxtest {

/// The exception that f raises; an empty one if it raises none.
template <class F>
qxbase::Exception failureOf(F f)
{
    try {
        f();
    } catch (const qxbase::Exception& e) {
        return e;
    }
    return {};
}

template <class F>
std::string idOf(F f)
{
    return failureOf(f).getId();
}

/// Key of the first argument of the failure.
template <class F>
std::string detailOf(F f)
{
    const qxbase::Exception e = failureOf(f);
    return e.size() == 0 || e.getArgs(0).empty() ? std::string() : e.getArgs(0).front().first;
}

} // namespace qxtest
