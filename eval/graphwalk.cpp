// SPDX-License-Identifier: LicenseRef-qxkernel
#include "graphwalk_detail.hpp"

#include "qxexception.hpp"

#include <sstream>
#include <typeinfo>

namespace qxeval {

const EvalNode& behindProxies(const EvalNode& node)
{
    const EvalNode* target = &node;
    while (typeid(*target) == typeid(ProxyNode))
        target = static_cast<const ProxyNode*>(target)->getTarget().get();
    return *target;
}

const OpNode* asOperation(const EvalNode* node)
{
    const EvalNode& target = behindProxies(*node);
    return typeid(target) == typeid(OpNode) ? static_cast<const OpNode*>(&target) : nullptr;
}

std::size_t countOperations(const EvalNode& root, std::size_t most)
{
    QxHashSet<const OpNode*> seen;
    std::vector<const OpNode*> todo;
    const auto meet = [&](const EvalNode& node) {
        if (const OpNode* const op = asOperation(&node))
            if (seen.insert(op).inserted)
                todo.push_back(op);
    };
    meet(root);
    while (!todo.empty() && seen.size() <= most) {
        const OpNode* const op = todo.back();
        todo.pop_back();
        for (const EvalNodePtr& arg : op->getArgs())
            meet(*arg);
    }
    return seen.size();
}

std::string nodeText(const EvalNode& node)
{
    std::ostringstream text;
    text.exceptions(std::ios_base::badbit); // a failed allocation is raised, not a text that ends early
    text.imbue(std::locale::classic());
    node.ostreamOperator(text);
    return text.str();
}

std::string nodeTextOrDots(const EvalNode& node)
{
    try {
        return nodeText(node);
    } catch (const qxbase::Exception&) {
        return "...";
    }
}

} // namespace qxeval
