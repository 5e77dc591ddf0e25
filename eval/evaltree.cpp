// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evaltree.hpp"

#include "cancel_detail.hpp"
#include "errinfo.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "funlookup_detail.hpp"
#include "graphwalk_detail.hpp"
#include "noderelease_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "treebuilder_detail.hpp"
#include "varevaluator.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>

namespace {

unsigned long idCounter = 0;

/// The text for the record of a failure.
std::string exprOrDots(const EvalTree& tree)
{
    try {
        return tree.getExpr();
    } catch (const qxbase::Exception&) {
        return "...";
    }
}

unsigned long newId()
{
    unsigned long id;
#pragma omp critical(EvalTreeIdCounter)
    id = idCounter++;
    return id;
}

/// Evaluator of basic variables only, for derivatives that no host takes part in.
class BasicVariables : public VarEvaluator
{
public:
    explicit BasicVariables(const NodeMakerPtr& maker)
        : VarEvaluator(maker, boost::make_shared<ShadowHandler>()), funs_(qxeval::standardFunctions())
    {
    }

    using VarEvaluator::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr&,
              const ValRepCachePtr&) override
    {
        QX_RAISE("evaltree", "Unknown_variable_name", "Name", name);
    }
    FunObjPtr getFun(const std::string& name, int nArgs) override { return qxeval::findFunction(funs_, name, nArgs); }
    FunObjPtr getStringFun(const std::string& name, int, const std::vector<std::string>&,
                           const std::vector<int>&) override
    {
        QX_RAISE("evaltree", "Unknown_function_name", "Name", name);
    }

private:
    const qxeval::FunTable funs_;
};

} // namespace

EvalTree::EvalTree() : EvalTree(std::string(), false) {}

EvalTree::EvalTree(const std::string& text, bool isVar)
    : expr_(text), kind_(isVar ? Variable : Plain), isVar_(isVar), lock_(boost::make_shared<qxbase::NestedLock>()),
      id_(newId())
{
}

EvalTree::EvalTree(const EvalNodePtr& node) : EvalTree(node, std::string()) {}

EvalTree::EvalTree(const EvalNodePtr& node, const std::string& text) : EvalTree(text, false)
{
    root_ = node;
    parsed_.store(true, std::memory_order_release);
}

EvalTree::EvalTree(Kind kind, const EvalTreePtr& left, const EvalTreePtr& right) : EvalTree(std::string(), false)
{
    kind_ = kind;
    left_ = left;
    right_ = right;
}

EvalTree::EvalTree(const EvalTree& other) : lock_(boost::make_shared<qxbase::NestedLock>()), id_(newId())
{
    const qxbase::LockHandler hold(other.lock_);
    expr_ = other.expr_;
    kind_ = other.kind_;
    left_ = other.left_;
    right_ = other.right_;
    isVar_ = other.isVar_;
    root_ = other.root_;
    parsed_.store(other.isParsed(), std::memory_order_release);
}

EvalTree& EvalTree::operator=(const EvalTree& other)
{
    if (this == &other)
        return *this;
    EvalTree copy(other);
    const qxbase::LockHandler hold(lock_);
    expr_.swap(copy.expr_);
    std::swap(kind_, copy.kind_);
    left_.swap(copy.left_);
    right_.swap(copy.right_);
    std::swap(isVar_, copy.isVar_);
    root_.swap(copy.root_);
    id_ = copy.id_; // what evaluators remember of the old expression does not fit any more
    parsed_.store(copy.isParsed(), std::memory_order_release);
    return *this;
}

EvalTree::~EvalTree()
{
    qxeval::releaseLater(left_);
    qxeval::releaseLater(right_);
}

EvalTreePtr EvalTree::plus(const EvalTreePtr& a, const EvalTreePtr& b)
{
    return EvalTreePtr(new EvalTree(Plus, a, b));
}

EvalTreePtr EvalTree::minus(const EvalTreePtr& a, const EvalTreePtr& b)
{
    return EvalTreePtr(new EvalTree(Minus, a, b));
}

EvalTreePtr EvalTree::times(const EvalTreePtr& a, const EvalTreePtr& b)
{
    return EvalTreePtr(new EvalTree(Times, a, b));
}

EvalTreePtr EvalTree::uminus(const EvalTreePtr& a)
{
    return EvalTreePtr(new EvalTree(Negation, a, EvalTreePtr()));
}

// Parsing ------------------------------------------------------------------------------------------------------------

void EvalTree::parse(const VarEvaluatorPtr& evaluator)
{
    if (isParsed())
        return;
    // Operands first, with an explicit stack: chains of combined trees may be of any length.
    std::vector<std::pair<EvalTree*, bool>> todo{{this, false}};
    while (!todo.empty()) {
        const auto [tree, operandsDone] = todo.back();
        todo.pop_back();
        if (tree->isParsed())
            continue;
        if (operandsDone || !tree->left_) {
            tree->parseOne(evaluator);
            continue;
        }
        todo.push_back({tree, true});
        if (tree->right_)
            todo.push_back({tree->right_.get(), false});
        todo.push_back({tree->left_.get(), false});
    }
}

/// Parses this tree, whose operands are parsed.
void EvalTree::parseOne(const VarEvaluatorPtr& evaluator)
{
    const qxbase::LockHandler hold(lock_);
    if (isParsed())
        return;
    if (parsing_) // the evaluator came back to this tree while it is parsed
        QX_RAISE("evaltree", "Evaluation_internal_error");
    struct Mark
    {
        bool& flag;
        explicit Mark(bool& f) : flag(f) { flag = true; }
        ~Mark() { flag = false; }
    } const mark(parsing_);

    NodeMaker& maker = *evaluator->getNodeMaker();
    switch (kind_) {
    case Plain:
        root_ = qxeval::buildNodes(expr_, evaluator);
        break;
    case Plus:
        root_ = maker.makeOpNode(PLUS, left_->getRoot(evaluator), right_->getRoot(evaluator));
        break;
    case Minus:
        root_ = maker.makeOpNode(MINUS, left_->getRoot(evaluator), right_->getRoot(evaluator));
        break;
    case Times:
        root_ = maker.makeOpNode(TIMES, left_->getRoot(evaluator), right_->getRoot(evaluator));
        break;
    case Negation:
        root_ = maker.makeOpNode(UMINUS, left_->getRoot(evaluator));
        break;
    case Variable:
        root_ = maker.makeVarNode(expr_);
        kind_ = Plain;
        break;
    }
    parsed_.store(true, std::memory_order_release);
}

EvalNodePtr EvalTree::getRoot(const VarEvaluatorPtr& evaluator)
{
    parse(evaluator);
    return root_;
}

const EvalNodePtr& EvalTree::requireRoot(const VarEvaluatorPtr& evaluator)
{
    parse(evaluator);
    if (!root_)
        QX_RAISE("evaltree", "Evaluation_internal_error");
    return root_;
}

std::string EvalTree::getExpr() const
{
    // What is still to be written: a text, or a tree.
    struct Piece
    {
        const char* text;
        const EvalTree* tree;
    };
    std::string result;
    std::vector<Piece> todo{{nullptr, this}};
    while (!todo.empty()) {
        const Piece piece = todo.back();
        todo.pop_back();
        if (!piece.tree) {
            result += piece.text;
            continue;
        }
        const EvalTree& tree = *piece.tree;
        const qxbase::LockHandler hold(tree.lock_);
        if (tree.expr_.empty() && tree.root_) {
            result += qxeval::nodeText(*tree.root_);
        } else if (tree.kind_ == Negation) {
            todo.insert(todo.end(), {{")", nullptr}, {nullptr, tree.left_.get()}, {"-(", nullptr}});
        } else if (tree.kind_ == Plus || tree.kind_ == Minus || tree.kind_ == Times) {
            const char* const sign = tree.kind_ == Plus ? ")+(" : tree.kind_ == Minus ? ")-(" : ")*(";
            todo.insert(todo.end(), {{")", nullptr},
                                     {nullptr, tree.right_.get()},
                                     {sign, nullptr},
                                     {nullptr, tree.left_.get()},
                                     {"(", nullptr}});
        } else {
            result += tree.expr_;
        }
    }
    return result;
}

// Evaluation ---------------------------------------------------------------------------------------------------------

ValRepPtr EvalTree::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags,
                         const qxutil::RunInfo* run)
{
    const qxeval::RunScope cancel(run);
    const EvalNodePtr& root = requireRoot(evaluator);
    if (root->isZero())
        return ValRep::makeZero();
    const EvaluationScope scope(evaluator);
    ValRepPtr result = root->eval(evaluator, cache, flags);
    addStory(result, flags);
    return result;
}

/// Ends the record of a NaN value with this expression.
void EvalTree::addStory(ValRepPtr& result, unsigned flags) const
{
    if (!result->isNaN() || !(flags & EvalValues))
        return;
    if (result.use_count() > 1)
        result = result->clone(); // a cached value's record is not ours to extend
    ErrInfo& errors = *result->getErrors();
    errors.newLine("evaltree", __LINE__);
    errors["message"] = "expreval";
    errors["exprs"] = exprOrDots(*this);
}

// Derivatives and dependence -----------------------------------------------------------------------------------------

EvalTreePtr EvalTree::diff(const std::string& var, const VarEvaluatorPtr& evaluator)
{
    const EvalNodePtr& root = requireRoot(evaluator);
    const std::string text = "d(" + getExpr() + ',' + var + ')';
    return evaluator->getNodeMaker()->makeNamedTree(root->diff(var, evaluator), text);
}

EvalTreePtr EvalTree::diffStatic(const EvalTreePtr& tree, const std::string& var, const NodeMakerPtr& nodeMaker)
{
    return tree->diff(var, boost::make_shared<BasicVariables>(nodeMaker));
}

EvalTreePtr EvalTree::simplify(const VarEvaluatorPtr& evaluator)
{
    const EvalNodePtr& root = requireRoot(evaluator);
    const std::string text = "simplify(" + getExpr() + ')';
    return evaluator->getNodeMaker()->makeNamedTree(root->simplify(evaluator), text);
}

DepInfo EvalTree::depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator)
{
    return requireRoot(evaluator)->depends(vars, evaluator);
}

DepInfo EvalTree::jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator)
{
    return requireRoot(evaluator)->jacDepends(vars, evaluator);
}

const EvalTree::Pairs& EvalTree::linearize(const VarEvaluatorPtr& evaluator)
{
    const unsigned diffFlags = *evaluator->getDiffFlagManager();
    const auto shadow = evaluator->getEvalTreeShadow(id_);
    if (shadow->shouldUpdateCache(evaluator->getVersion()) || !shadow->valid || shadow->diffFlags != diffFlags) {
        Pairs linear;
        linearize(evaluator, getBVarNames(evaluator), linear);
        shadow->initCache(evaluator);
        shadow->linear.swap(linear);
        shadow->diffFlags = diffFlags;
        shadow->valid = true;
    }
    return shadow->linear;
}

void EvalTree::linearize(const VarEvaluatorPtr& evaluator, const std::vector<std::string>& vars, Pairs& pairs)
{
    Pairs found;
    for (const std::string& var : vars) {
        const EvalTreePtr derivative = diff(var, evaluator);
        if (!derivative->getRoot(evaluator)->isZero())
            found.emplace_back(var, derivative);
    }
    pairs.insert(pairs.end(), found.begin(), found.end());
}

void EvalTree::gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names)
{
    requireRoot(evaluator)->gatherBVars(evaluator, seen, names);
}

std::vector<std::string> EvalTree::getBVarNames(const VarEvaluatorPtr& evaluator)
{
    NodeIdSet seen;
    NameSet names;
    gatherBVars(evaluator, seen, names);
    std::vector<std::string> sorted;
    for (const auto& entry : names)
        sorted.push_back(entry.key);
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}
