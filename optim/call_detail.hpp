// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optimstate.hpp"
#include "optim/entrypoints_detail.hpp"

namespace qxoptim {

/// The calling lengths: a word has 8 characters; a workspace has at least 500 words.
constexpr HiddenLength kWordLength = 8;
constexpr int kLeastWords = 500;

/// Address of an entry point of the opened library.
template <class F>
F* entryPoint(const qxbase::QxLib& library, const char* name)
{
    return reinterpret_cast<F*>(library.getSymbolAddress(name));
}

/// Identifier of a missing workspace or array.
inline const char* outOfMemoryId(bool np)
{
    return np ? "Out of memory in optimization" : "Out_of_memory_in_optimization";
}

} // namespace qxoptim

/// The entry point of this name, with its type.
#define QX_OPTIM_ENTRY(library, name) ::qxoptim::entryPoint<decltype(::name)>(*(library), #name)
