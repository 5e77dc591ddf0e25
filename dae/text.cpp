#include "text_detail.hpp"

#include "exprimpl.hpp"

namespace qxdae {

boost::shared_ptr<ExprTree> copyTree(const ExprTree& tree)
{
    const auto copy = boost::make_shared<ExprTree>(tree);
    const ExprImpl::NodePtr root = copy->getImpl()->getRoot();
    copy->getImpl()->setRoot(root->getCopy(root));
    return copy;
}

boost::shared_ptr<ExprTree> simplified(const ExprTree& tree)
{
    const auto copy = copyTree(tree);
    copy->simp(false);
    return copy;
}

} // namespace qxdae
