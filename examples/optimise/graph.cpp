// SPDX-License-Identifier: LicenseRef-qxkernel
#include "graph.hpp"

#include "evalfun.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

namespace examples {

Graph::Graph(std::vector<std::string> variables, const std::map<std::string, std::string>& definitions)
    : variables_(std::move(variables)), nodeMaker_(boost::make_shared<NodeMaker>())
{
    for (const auto& [name, text] : definitions)
        definitions_[name] = boost::make_shared<EvalTree>(text, false);
    host_ = boost::make_shared<Host>(variables_, definitions_, nodeMaker_);
    evaluator_ = host_;
}

EvalNodePtr Graph::read(const std::string& text) const
{
    EvalTree tree(text, false);
    EvalNodePtr root = tree.getRoot(evaluator_);
    for (const std::string& name : tree.getBVarNames(evaluator_))
        if (host_->numberOf(name) < 0)
            QX_RAISE("optimise", "Unknown_variable_name", "Name", name);
    return root;
}

EvalNodePtr Graph::seen(const EvalNodePtr& node) const
{
    EvalNodePtr at = node;
    for (;;) {
        if (const auto* proxy = dynamic_cast<const ProxyNode*>(at.get())) {
            at = proxy->getTarget();
        } else if (dynamic_cast<const VarNode*>(at.get()) != nullptr) {
            const EvalNodePtr definition = evaluator_->expand(evaluator_, at->getVarName());
            if (!definition)
                return at;
            at = definition;
        } else {
            return at;
        }
    }
}

int Graph::variableOf(const EvalNode& node) const
{
    return dynamic_cast<const VarNode*>(&node) != nullptr ? host_->numberOf(node.getVarName()) : -1;
}

const EvalNodes& argumentsOf(const EvalNode& node)
{
    static const EvalNodes none;
    const auto* operation = dynamic_cast<const OpNode*>(&node);
    return operation != nullptr ? operation->getArgs() : none;
}

std::vector<EvalNodePtr> Graph::nodesOf(const std::vector<EvalNodePtr>& roots) const
{
    struct Visit
    {
        EvalNodePtr node;
        std::size_t nextArgument;
    };
    std::vector<EvalNodePtr> order;
    std::unordered_map<const EvalNode*, bool> met;
    std::vector<Visit> open;
    const auto enter = [&](const EvalNodePtr& node) {
        EvalNodePtr own = seen(node);
        if (met.emplace(own.get(), true).second)
            open.push_back({std::move(own), 0});
    };
    for (const EvalNodePtr& root : roots) {
        enter(root);
        while (!open.empty()) {
            const EvalNodes& arguments = argumentsOf(*open.back().node);
            if (open.back().nextArgument < arguments.size()) {
                enter(arguments[open.back().nextArgument++]);
                continue;
            }
            order.push_back(std::move(open.back().node));
            open.pop_back();
        }
    }
    return order;
}

std::vector<std::pair<int, EvalNodePtr>> Graph::gradient(const EvalNodePtr& root) const
{
    const std::vector<EvalNodePtr> order = nodesOf({root});
    std::unordered_map<const EvalNode*, EvalNodePtr> adjoint; // derivative of the root by the node
    std::map<int, EvalNodePtr> byVariable;
    const auto add = [&](EvalNodePtr& sum, const EvalNodePtr& value, const EvalNodePtr& partial) {
        const EvalNodePtr term = nodeMaker_->makeOpNode(TIMES, value, partial);
        sum = sum ? nodeMaker_->makeOpNode(PLUS, sum, term) : term;
    };
    adjoint[order.back().get()] = nodeMaker_->makeUnitNode();
    for (auto at = order.rbegin(); at != order.rend(); ++at) {
        const auto own = adjoint.find(at->get());
        if (own == adjoint.end())
            continue;
        const EvalNodePtr value = own->second;
        if (const int number = variableOf(**at); number >= 0) {
            add(byVariable[number], value, nodeMaker_->makeUnitNode());
        } else if (const auto* operation = dynamic_cast<const OpNode*>(at->get())) {
            for (std::size_t k = 0; k < operation->getArgs().size(); ++k) {
                const EvalNodePtr argument = seen(operation->getArgs()[k]);
                const EvalNodePtr partial =
                    operation->getFun()->diffRule(operation->getArgs(), static_cast<int>(k) + 1, nodeMaker_);
                if (!argument->isScalar() && !partial->isZero())
                    add(adjoint[argument.get()], value, partial);
            }
        } else if (!(*at)->isScalar()) { // a derivative that the user wrote: forward, by each of its variables
            NodeIdSet met;
            NameSet names;
            (*at)->gatherBVars(evaluator_, met, names);
            for (std::size_t j = 0; j < variables_.size(); ++j)
                if (names.contains(variables_[j]))
                    if (const EvalNodePtr partial = (*at)->diff(variables_[j], evaluator_); !partial->isZero())
                        add(byVariable[static_cast<int>(j)], value, partial);
        }
    }
    return {byVariable.begin(), byVariable.end()};
}

std::vector<int> Graph::degrees(const std::vector<EvalNodePtr>& roots) const
{
    std::unordered_map<const EvalNode*, int> degrees;
    const std::vector<EvalNodePtr> order = nodesOf(roots);
    for (const EvalNodePtr& node : order) {
        const auto* operation = dynamic_cast<const OpNode*>(node.get());
        if (operation == nullptr) {
            degrees[node.get()] = variableOf(*node) >= 0 ? 1 : node->isScalar() ? 0 : kNoPolynomial;
            continue;
        }
        const auto of = [&](std::size_t k) { return degrees[seen(operation->getArgs()[k]).get()]; };
        const FunObj* fun = operation->getFun().get();
        const auto is = [&](FunId id, int arity) { return fun == nodeMaker_->idToFun(id, arity).get(); };
        int highest = 0;
        for (std::size_t k = 0; k < operation->getArgs().size(); ++k)
            highest = std::max(highest, of(k));
        int& degree = degrees[node.get()];
        double exponent = 0.0;
        if (highest == 0 || is(UMINUS, 1) || is(UPLUS, 1) || is(PLUS, 2) || is(MINUS, 2))
            degree = highest;
        else if (is(TIMES, 2))
            degree = of(0) + of(1);
        else if (is(DIV, 2) && of(1) == 0)
            degree = of(0);
        else if (is(POW2, 1))
            degree = 2 * of(0);
        else if (is(PLUSSQ, 2)) // the sum of two squares
            degree = 2 * highest;
        else if (is(POW, 2) && seen(operation->getArgs()[1])->isRealScalar(exponent) && exponent >= 0 && exponent < 100 &&
                 exponent == std::floor(exponent))
            degree = static_cast<int>(exponent) * of(0);
        else
            degree = kNoPolynomial;
        degree = std::min(degree, kNoPolynomial);
    }
    std::vector<int> result;
    for (const EvalNodePtr& root : roots)
        result.push_back(degrees[seen(root).get()]);
    return result;
}

} // namespace examples
