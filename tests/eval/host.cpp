#include "host.hpp"

#include "derivativenodes.hpp"

#include <set>

namespace qxtest {

std::size_t countOperations(const EvalNodePtr& root)
{
    std::set<const EvalNode*> seen;
    std::vector<const EvalNode*> todo{root.get()};
    std::size_t count = 0;
    while (!todo.empty()) {
        const EvalNode* node = todo.back();
        todo.pop_back();
        while (const auto* proxy = dynamic_cast<const ProxyNode*>(node))
            node = proxy->getTarget().get();
        if (!seen.insert(node).second)
            continue;
        if (const auto* op = dynamic_cast<const OpNode*>(node)) {
            ++count;
            for (const EvalNodePtr& arg : op->getArgs())
                todo.push_back(arg.get());
        }
    }
    return count;
}

} // namespace qxtest
