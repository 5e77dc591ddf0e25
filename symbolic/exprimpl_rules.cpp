// SPDX-License-Identifier: LicenseRef-qxkernel
// What the nodes of one family share: rules of differentiation, elementary functions on numbers, cached constants.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <cmath>

using namespace qxsymbolic;

namespace {

struct RuleRow
{
    std::string_view name;
    int argCount;
    const char* derivative;
};

// Prefix texts; x is the parameter of a function of one argument, x and y those of two. The rules of besseli, besselk
// and bessely do not read (operands are missing or left over), so that differentiating these functions fails: hosts rely
// on the failure to fall back to other means.
constexpr RuleRow ruleTable[] = {
    {"abs", 1, "() sign 1 x"},
    {"acos", 1, "U- / 1 () sqrt 1 - 1 ^ x 2"},
    {"acosh", 1, "/ 1 () sqrt 1 - ^ x 2 1"},
    {"acot", 1, "U- / 1 + 1 ^ x 2"},
    {"acoth", 1, "/ 1 - 1 ^ x 2"},
    {"acsc", 1, "U- / 1 * ^ x 2 () sqrt 1 - 1 / 1 ^ x 2"},
    {"acsch", 1, "U- / 1 * ^ x 2 () sqrt 1 + 1 / 1 ^ x 2"},
    {"asec", 1, "/ 1 * ^ x 2 () sqrt 1 - 1 / 1 ^ x 2"},
    {"asech", 1, "U- / 1 * ^ x 2 * () sqrt 1 - / 1 x 1 () sqrt 1 + / 1 x 1"},
    {"asin", 1, "/ 1 () sqrt 1 - 1 ^ x 2"},
    {"asinh", 1, "/ 1 () sqrt 1 + ^ x 2 1"},
    {"atan", 1, "/ 1 + 1 ^ x 2"},
    {"atan2", 2, ", 2 / y + ^ x 2 ^ y 2 U- / x + ^ x 2 ^ y 2"},
    {"atanh", 1, "/ 1 - 1 ^ x 2"},
    {"besseli", 2, ", 2 0 / + () besseli 2 - x 1 y () besseli + x 1 y 2"},
    {"besselj", 2, ", 2 0 / - () besselj 2 - x 1 y () besselj 2 + x 1 y 2"},
    {"besselk", 2, ", 2 0 U- / + () besselk 2 - x 1 y () besselk + x 1 y 2"},
    {"bessely", 2, ", 2 0 - () bessely 2 - x 1 y () bessely 2 + x 1 y 2"},
    {"cos", 1, "U- () sin 1 x"},
    {"cosh", 1, "() sinh 1 x"},
    {"cot", 1, "U- / 1 ^ () sin 1 x 2"},
    {"coth", 1, "U- / 1 ^ () sinh 1 x 2"},
    {"csc", 1, "U- * () cos 1 x ^ () csc 1 x 2"},
    {"csch", 1, "U- * () csch 1 x () coth 1 x"},
    {"erf", 1, "/ * 2 () exp 1 U- ^ x 2 () sqrt 1 pi"},
    {"exp", 1, "() exp 1 x"},
    {"log", 1, "/ 1 x"},
    {"log10", 1, "/ 1 * x () log 1 10"},
    {"log2", 1, "/ 1 * x () log 1 2"},
    {"max", 2, ", 2 > x y < x y"},
    {"min", 2, ", 2 < x y > x y"},
    {"sec", 1, "* () sin 1 x ^ () sec 1 x 2"},
    {"sech", 1, "U- * () sech 1 x () tanh 1 x"},
    {"sign", 1, "0"},
    {"sin", 1, "() cos 1 x"},
    {"sinh", 1, "() cosh 1 x"},
    {"sqrt", 1, "/ 1 * 2 () sqrt 1 x"},
    {"tan", 1, "/ 1 ^ () cos 1 x 2"},
    {"tanh", 1, "/ 1 ^ () cosh 1 x 2"},
};

const RuleRow* findRow(const std::string& name, int argCount)
{
    for (const RuleRow& row : ruleTable)
        if (row.name == name && row.argCount == argCount)
            return &row;
    return nullptr;
}

} // namespace

ExprImpl::FuncRules::FuncRules(const StorePtr& store) : store_(store) {}
ExprImpl::FuncRules::~FuncRules() = default;

void ExprImpl::FuncRules::addDiffRule(const std::string& functionText, const std::string& derivativeText)
{
    extraRules_.emplace_back(functionText, derivativeText);
}

ExprImpl::FuncRules::DiffRulePtr ExprImpl::FuncRules::getDiffRule(const std::string& name, int argCount)
{
    const auto key = std::make_pair(name, argCount);
    const auto found = diffRules_.find(key);
    if (found != diffRules_.end())
        return found->second;
    const DiffRulePtr rule = readRule(name, argCount);
    if (caching_)
        diffRules_.emplace(key, rule);
    return rule;
}

/// Canonical, so that within all rules a name is one node.
ExprImpl::NodePtr ExprImpl::FuncRules::parseRule(const std::string& text)
{
    NodePtr root = InfixParser(store_, shared_from_this()).parse(text);
    if (caching_) {
        root->makeCanonic(root, ruleTable_);
    } else {
        NodeHashTable table;
        root->makeCanonic(root, table);
    }
    return root;
}

namespace {

/// The n elements of a rule's text: the text itself for one, otherwise those of a list.
Nodes elementsOf(const NodePtr& root, int n)
{
    if (n == 1)
        return {root};
    Nodes elements;
    for (int i = 0; i < n; ++i)
        elements.push_back(root->getChild(i));
    return elements;
}

} // namespace

ExprImpl::FuncRules::DiffRulePtr ExprImpl::FuncRules::readRule(const std::string& name, int argCount)
{
    const auto rule = boost::make_shared<DiffRule>();
    if (const RuleRow* row = findRow(name, argCount)) {
        rule->params = elementsOf(parseRule(argCount == 1 ? "x" : ", 2 x y"), argCount);
        rule->derivs = elementsOf(parseRule(row->derivative), argCount);
        return rule;
    }
    for (const auto& [functionText, derivativeText] : extraRules_) {
        const NodePtr function = parseRule(functionText);
        if (function->type != Node::TypeFuncCall)
            QX_RAISE("exprimpl", "Syntax_error_in_differentiation_rule", "Function", function->toString());
        const auto& call = function->as<FuncCall>();
        if (call.name != name || call.getChildCount() != argCount)
            continue;
        rule->params = call.args;
        rule->derivs = elementsOf(parseRule(derivativeText), argCount);
        return rule;
    }
    QX_RAISE("exprimpl", "Differentiation_rule_missing", "Function", name);
}

ExprImpl::NodePtr ExprImpl::FuncRules::subst(const NodePtr& root, const Nodes& params, const Nodes& args)
{
    // By variable and not by pointer alone: after a hash collision a name may be two nodes.
    const auto argumentOf = [&](const NodePtr& node) -> const NodePtr* {
        for (std::size_t i = 0; i < params.size(); ++i)
            if (node == params[i] || (node->type == Node::TypeIdentifier && params[i]->type == Node::TypeIdentifier &&
                                      node->as<Identifier>().var == params[i]->as<Identifier>().var))
                return &args[i];
        return nullptr;
    };
    return rebuildPostOrder(
        root,
        [&](const NodePtr& node, NodePtr& out) {
            if (const NodePtr* argument = argumentOf(node))
                out = *argument;
            return static_cast<bool>(out);
        },
        [](const NodePtr& node, std::span<NodePtr> children) { return node->rebuild(node, children); });
}

ExprImpl::NodePtr ExprImpl::FuncRules::diff(const std::string& name, const Nodes& args, const Nodes& argDerivs)
{
    if (args.empty())
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    const DiffRulePtr rule = getDiffRule(name, static_cast<int>(args.size()));
    // A vanishing product is left out, unless folding it could fail: that takes a number among the arguments.
    bool numbers = false;
    for (const NodePtr& arg : args)
        numbers = numbers || arg->type == Node::TypeConstant;
    const RulesPtr self = shared_from_this();
    NodePtr sum;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const NodePtr& d = argDerivs[i];
        if (!numbers && d->type == Node::TypeConstant && d->getNumVal() == 0.0)
            continue;
        const NodePtr product = qxsymbolic::makeBinary(self, Node::TypeMul, d, subst(rule->derivs[i], rule->params, args));
        sum = sum ? qxsymbolic::makeBinary(self, Node::TypeAdd, sum, product) : product;
    }
    return sum ? sum : constant(0.0);
}

ExprImpl::NodePtr ExprImpl::FuncRules::diff(const std::string& name, const Nodes& args, const VarPtr& var)
{
    DiffPass pass(var);
    Nodes argDerivs;
    for (const NodePtr& arg : args)
        argDerivs.push_back(pass.run(arg));
    return diff(name, args, argDerivs);
}

// Cached constants.

ExprImpl::NodePtr ExprImpl::FuncRules::constant(double d)
{
    for (const auto& [value, node] : constants_)
        if (value == d)
            return node;
    const NodePtr node = make<Constant>(shared_from_this(), Number(d));
    if (caching_) {
        constexpr std::size_t capacity = 10;
        if (constants_.size() == capacity)
            constants_.erase(constants_.begin());
        constants_.emplace_back(d, node);
    }
    return node;
}

ExprImpl::NodePtr ExprImpl::FuncRules::constant(const Number& n)
{
    for (const auto& [value, node] : constants_)
        if (Number::eq(n, value))
            return node;
    return make<Constant>(shared_from_this(), n);
}

// Release.

void ExprImpl::FuncRules::markForGc(const NodePtr& node) { gcQueue_.push_back(node); }

void ExprImpl::FuncRules::gc()
{
    Nodes queue;
    queue.swap(gcQueue_);
}

void ExprImpl::FuncRules::clear()
{
    caching_ = false;
    gc();
    // Released from locals: the last reference to this object may be among them.
    const auto keep = shared_from_this();
    decltype(diffRules_) oldRules;
    decltype(constants_) oldConstants;
    oldRules.swap(diffRules_);
    oldConstants.swap(constants_);
    ruleTable_.clear();
}

// Elementary functions on numbers.

ExprImpl::BuiltinFunc::~BuiltinFunc() = default;

namespace {

/// A function of N numbers; f says whether it answers.
template <int N, class F>
class Elementary final : public ExprImpl::BuiltinFunc
{
public:
    explicit Elementary(F f) : f_(f) {}
    bool eval(const std::vector<double>& args, double& result) const override
    {
        return args.size() == N && f_(args.data(), result);
    }

private:
    F f_;
};

struct FuncEntry
{
    std::string_view name;
    std::uint32_t nameHash;
    boost::shared_ptr<ExprImpl::BuiltinFunc> func;
};

template <int N, class F>
FuncEntry entry(std::string_view name, F f)
{
    return {name, hashText(name), boost::make_shared<Elementary<N, F>>(f)};
}

std::vector<FuncEntry> makeFunctionTable()
{
    return {
        entry<1>("abs", [](const double* x, double& y) { y = std::fabs(x[0]); return true; }),
        entry<1>("atan", [](const double* x, double& y) { y = std::atan(x[0]); return true; }),
        entry<2>("atan2", [](const double* x, double& y) { y = std::atan2(x[0], x[1]); return true; }),
        entry<1>("conj", [](const double* x, double& y) { y = x[0]; return true; }),
        entry<1>("cos", [](const double* x, double& y) { y = std::cos(x[0]); return true; }),
        entry<1>("exp", [](const double* x, double& y) { y = std::exp(x[0]); return !std::isinf(y); }),
        entry<1>("log", [](const double* x, double& y) { y = std::log(x[0]); return !(x[0] <= 0.0); }),
        entry<1>("log10", [](const double* x, double& y) { y = std::log10(x[0]); return !(x[0] <= 0.0); }),
        entry<1>("log2", [](const double* x, double& y) { y = 1.4426950408889634 * std::log(x[0]); return !(x[0] <= 0.0); }),
        entry<1>("real", [](const double* x, double& y) { y = x[0]; return true; }),
        entry<1>("sin", [](const double* x, double& y) { y = std::sin(x[0]); return true; }),
        entry<1>("sqrt", [](const double* x, double& y) { y = std::sqrt(x[0]); return !(x[0] < 0.0); }),
        entry<1>("tan", [](const double* x, double& y) { y = std::tan(x[0]); return !std::isinf(y); }),
    };
}

} // namespace

bool ExprImpl::FuncRules::evalElemFunc(const std::string& name, const std::vector<double>& args, double& result)
{
    // Never destroyed: hosts may still read formulas in static destructors.
    static const std::vector<FuncEntry>& functions = *new const std::vector<FuncEntry>(makeFunctionTable());
    const std::uint32_t hash = hashText(name);
    for (const FuncEntry& function : functions)
        if (function.nameHash == hash && function.name == name)
            return function.func->eval(args, result);
    return false;
}
