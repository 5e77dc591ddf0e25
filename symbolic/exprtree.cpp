// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprtree.hpp"

#include "array.hpp"
#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <iterator>
#include <ostream>

using namespace qxsymbolic;

bool ExprVarOrderLess::operator()(const ExprVarOrder& a, const ExprVarOrder& b) const
{
    if (const int names = a.first->getName().compare(b.first->getName()))
        return names < 0;
    return a.second != b.second ? a.second < b.second : a.first < b.first;
}

ExprTree::ExprTree() : ExprTree(RulePairs()) {}
ExprTree::ExprTree(const RulePairs& rules) : ExprTree(boost::make_shared<ExprVarStore>(), rules) {}
ExprTree::ExprTree(const boost::shared_ptr<ExprVarStore>& store, const RulePairs& rules)
    : store_(store), impl_(boost::make_shared<ExprImpl>(store, rules))
{
}
ExprTree::ExprTree(const ExprTree& other) : store_(other.store_), impl_(boost::make_shared<ExprImpl>(*other.impl_)) {}

ExprTree& ExprTree::operator=(const ExprTree& other)
{
    const auto copy = boost::make_shared<ExprImpl>(*other.impl_);
    store_ = other.store_;
    impl_ = copy;
    return *this;
}

ExprTree::~ExprTree() = default;

void ExprTree::scan(const std::string& text) { impl_->scan(text); }
void ExprTree::scanInfix(const std::string& text) { impl_->scanInfix(text); }
void ExprTree::print(std::string& text) const { text = impl_->toString(); }
void ExprTree::simp(bool evalFuncs, const qxutil::RunInfo* info) { impl_->simp(evalFuncs, info); }
void ExprTree::simp(const std::vector<std::string>& names, const std::vector<std::string>& exprs)
{
    impl_->simp(names, exprs);
}
void ExprTree::diff(const std::string& name, const qxutil::RunInfo* info) { impl_->diff(store_->getVar(name), info); }
void ExprTree::makeBinary() { impl_->makeBinary(); }
void ExprTree::getVarOccurrences(ExprVarOccurrences& set) const { impl_->getVarOccurrences(set); }
void ExprTree::replaceVars(const ExprVarMap& map, const std::string& timeName) { impl_->replaceVars(map, timeName); }
void ExprTree::boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                        Array<int, 2>& result) const
{
    impl_->boolEval(names, values, result);
}

void ExprTree::divide(const ExprTree& a, const ExprTree& b)
{
    impl_->setRoot(qxsymbolic::makeBinary(impl_->getRules(), Node::TypeDiv, a.impl_->getRoot(), b.impl_->getRoot()));
}

void ExprTree::minus(const ExprTree& a, const ExprTree& b)
{
    impl_->setRoot(qxsymbolic::makeBinary(impl_->getRules(), Node::TypeSub, a.impl_->getRoot(), b.impl_->getRoot()));
}

bool ExprTree::toReal(double& value) const
{
    const NodePtr& root = impl_->getRoot();
    if (root->type != Node::TypeConstant)
        return false;
    value = root->getNumVal().toReal();
    return true;
}

bool ExprTree::solveFor(const boost::shared_ptr<ExprVar>& var, ExprTree& out) const
{
    ExprTree solution(store_, RulePairs());
    const bool solved = impl_->solveFor(var, *solution.impl_);
    out = solution;
    return solved;
}

namespace {

/// All or nothing.
void append(std::vector<std::string>& texts, std::vector<std::string>&& more)
{
    texts.insert(texts.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

} // namespace

void ExprTree::getVars(const std::string& text, std::vector<std::string>& names)
{
    const NodePtr root = impl_->read(text);
    std::vector<std::string> found;
    std::vector<const Node*> open{root.get()};
    while (!open.empty()) {
        const Node& node = *open.back();
        open.pop_back();
        if (node.type == Node::TypeIdentifier) {
            found.push_back(node.as<ExprImpl::Identifier>().var->getName());
            continue;
        }
        const int children = node.type == Node::TypeUnitConversion ? 1 : node.getChildCount();
        for (int i = children - 1; i >= 0; --i)
            open.push_back(node.childAt(i).get());
    }
    append(names, std::move(found));
    impl_->setRoot(root);
}

namespace {

ExprImpl::NameMap makeNameMap(const std::vector<std::string>& from, const std::vector<std::string>& to)
{
    if (from.size() != to.size())
        QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
    ExprImpl::NameMap map;
    for (std::size_t i = 0; i < from.size(); ++i)
        map[from[i]] = to[i];
    return map;
}

} // namespace

void ExprTree::rename(std::string& text, const std::vector<std::string>& oldVars,
                      const std::vector<std::string>& newVars, const std::vector<std::string>& oldFuncs,
                      const std::vector<std::string>& newFuncs)
{
    const ExprImpl::NameMap vars = makeNameMap(oldVars, newVars), functions = makeNameMap(oldFuncs, newFuncs);
    const NodePtr root = impl_->read(text);
    root->rename(vars, functions, store_);
    std::string renamed = root->toString();
    impl_->setRoot(root);
    text.swap(renamed);
}

void ExprTree::replaceArgs(std::string& text, const std::vector<std::string>& names, std::vector<std::string>& oldArgs)
{
    const NodePtr root = impl_->read(text);
    std::size_t next = 0;
    std::vector<std::string> found;
    std::vector<Node*> open{root.get()};
    while (!open.empty()) {
        Node& node = *open.back();
        open.pop_back();
        const int n = node.getChildCount();
        if (node.type != Node::TypeFuncCall) {
            for (int i = n - 1; i >= 0; --i)
                open.push_back(node.getChild(i).get());
            continue;
        }
        for (int i = 0; i < n; ++i) {
            NodePtr& arg = node.getChild(i);
            if (!names.empty() && next == names.size())
                QX_RAISE("exprimpl", "Internal_error_symbolic_processing");
            found.push_back(arg->toString());
            arg = make<ExprImpl::StringLiteral>(impl_->getRules(), names.empty() ? std::string() : names[next++]);
        }
    }
    std::string replaced = root->toString();
    append(oldArgs, std::move(found));
    impl_->setRoot(root);
    text.swap(replaced);
}

std::ostream& operator<<(std::ostream& stream, const ExprTree& tree)
{
    tree.getImpl()->write(stream);
    return stream;
}
