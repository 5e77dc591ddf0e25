#include "graphwalk_detail.hpp"

#include "qxexception.hpp"

#include <sstream>
#include <typeinfo>

namespace qxeval {

const OpNode* asOperation(const EvalNode* node)
{
    while (typeid(*node) == typeid(ProxyNode))
        node = static_cast<const ProxyNode*>(node)->getTarget().get();
    return typeid(*node) == typeid(OpNode) ? static_cast<const OpNode*>(node) : nullptr;
}

std::string nodeText(const EvalNode& node)
{
    std::ostringstream text;
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
