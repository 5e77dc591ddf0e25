// SPDX-License-Identifier: LicenseRef-qxkernel
#include "host.hpp"

#include "derivativenodes.hpp"

#include <set>

namespace qxtest {

std::size_t countNodes(const EvalNodePtr& root)
{
    std::set<const EvalNode*> seen;
    std::vector<const EvalNode*> todo{root.get()};
    while (!todo.empty()) {
        const EvalNode* node = todo.back();
        todo.pop_back();
        while (const auto* proxy = dynamic_cast<const ProxyNode*>(node))
            node = proxy->getTarget().get();
        if (!seen.insert(node).second)
            continue;
        if (const auto* op = dynamic_cast<const OpNode*>(node))
            for (const EvalNodePtr& arg : op->getArgs())
                todo.push_back(arg.get());
    }
    return seen.size();
}

} // namespace qxtest
