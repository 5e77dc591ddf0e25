// SPDX-License-Identifier: LicenseRef-qxkernel
#include "text_detail.hpp"

namespace qxdae {

boost::shared_ptr<ExprTree> simplified(const ExprTree& tree, const qxutil::RunInfo* info)
{
    const auto copy = boost::make_shared<ExprTree>(tree);
    copy->simp(false, info);
    return copy;
}

} // namespace qxdae
