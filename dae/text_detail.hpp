// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprtree.hpp"

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <string>

/// What this folder does with expression trees. The trees of a Dae are never changed: steps replace them.
namespace qxdae {

inline std::string toText(const ExprTree& tree)
{
    std::string text;
    tree.print(text);
    return text;
}

/// A copy in canonical form. Optional info is asked whether to stop.
boost::shared_ptr<ExprTree> simplified(const ExprTree& tree, const qxutil::RunInfo* info = nullptr);

} // namespace qxdae
