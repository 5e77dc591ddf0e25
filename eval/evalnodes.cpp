// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalnodes.hpp"

#include "errinfo.hpp"
#include "evalfun.hpp"
#include "evalprogram_detail.hpp"
#include "evalrep_detail.hpp"
#include "evalshadow.hpp"
#include "graphwalk_detail.hpp"
#include "noderelease_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "stackroom_detail.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <ostream>

namespace {

constexpr unsigned numbersWanted = EvalValues | EvalGatherBVars;

/// Opens a line of the record of rep: "message" = message.
ErrInfo& newLine(const ValRepPtr& rep, const char* message, int line)
{
    ErrInfo& errors = *rep->getErrors();
    errors.newLine("evalnodes", line);
    errors["message"] = message;
    return errors;
}

[[noreturn]] void refuseString()
{
    QX_RAISE("evalnodes", "Strings_are_only_allowed_in_function_arguments");
}

/// Evaluates a graph of operations in post-order with an explicit stack; any other node evaluates itself. What a program
/// would compute once is computed once here too.
class DeepEvaluation
{
public:
    DeepEvaluation(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags)
        : evaluator_(evaluator), cache_(cache), flags_(flags)
    {
    }

    ValRepPtr operator()(const OpNode& root)
    {
        qxeval::requireStack();
        countUses(root);
        frames_.push_back({&root, 0});
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            const EvalNodes& args = frame.op->getArgs();
            if (frame.done < args.size())
                visit(*args[frame.done++]);
            else
                leave();
        }
        return values_.back().value;
    }

private:
    struct Frame
    {
        const OpNode* op;
        std::size_t done; // arguments whose values are on the value stack
    };
    struct Known
    {
        ValRepPtr value;
        bool pure; // nothing below evaluates itself at each use
    };
    struct Uses
    {
        std::size_t left = 0;
        ValRepPtr value; // of a pure operation that is used again
    };

    void countUses(const OpNode& root)
    {
        std::vector<const OpNode*> todo{&root};
        while (!todo.empty()) {
            const OpNode* const op = todo.back();
            todo.pop_back();
            for (const EvalNodePtr& arg : op->getArgs())
                if (const OpNode* const below = qxeval::asOperation(arg.get())) {
                    if (const QxHashLookup hit = uses_.lookup(below)) {
                        ++uses_.at(hit.slot).left;
                    } else {
                        uses_.insert(below, Uses{1, ValRepPtr()});
                        todo.push_back(below);
                    }
                }
        }
    }

    void visit(const EvalNode& node)
    {
        const OpNode* const op = qxeval::asOperation(&node);
        if (!op) {
            const bool pure = qxeval::Program::isKept(qxeval::behindProxies(node)) || node.isScalar();
            values_.push_back({node.eval(evaluator_, cache_, flags_), pure});
            return;
        }
        Uses& uses = uses_.at(uses_.lookup(op).slot);
        if (!uses.value) {
            frames_.push_back({op, 0});
            return;
        }
        values_.push_back({uses.value, true});
        if (--uses.left == 0)
            uses.value.reset();
    }

    /// Applies the operation on top to the values on top.
    void leave()
    {
        const OpNode& op = *frames_.back().op;
        frames_.pop_back();
        const std::size_t first = values_.size() - op.getArgs().size();
        bool pure = qxeval::Program::hasKernel(op);
        args_.clear();
        for (std::size_t i = first; i < values_.size(); ++i) {
            args_.push_back(std::move(values_[i].value));
            pure = pure && values_[i].pure;
        }
        values_.resize(first);
        ValRepPtr result = op.apply(args_.data(), flags_);
        if (const QxHashLookup hit = uses_.lookup(&op); hit && pure) {
            Uses& uses = uses_.at(hit.slot);
            if (uses.left > 1) {
                --uses.left;
                uses.value = result;
            }
        }
        values_.push_back({std::move(result), pure});
    }

    const VarEvaluatorPtr& evaluator_;
    const ValRepCachePtr& cache_;
    const unsigned flags_;
    std::vector<Frame> frames_;
    std::vector<Known> values_;
    std::vector<ValRepPtr> args_;
    QxHashMap<Uses, const OpNode*> uses_;
};

} // namespace

// EvalNode -----------------------------------------------------------------------------------------------------------

EvalNode::~EvalNode() = default;

ValRepPtr EvalNode::getScalar() const
{
    return ValRep::makeNaN();
}

bool EvalNode::isRealScalar(double&) const
{
    return false;
}

DepInfo EvalNode::depends(const std::vector<std::string>&, const VarEvaluatorPtr&) const
{
    return DepInfo();
}

DepInfo EvalNode::jacDepends(const std::vector<std::string>&, const VarEvaluatorPtr&) const
{
    return DepInfo();
}

std::string EvalNode::getVarName() const
{
    return std::string();
}

std::ostream& operator<<(std::ostream& out, const EvalNode& node)
{
    node.ostreamOperator(out);
    return out;
}

// Constants ----------------------------------------------------------------------------------------------------------

/// The number at the start of a text, as strtod reads it in the "C" locale; NaN if there is none.
static double numberAtStart(const std::string& text)
{
    static const locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    const double number = strtod_l(text.c_str(), &end, c);
    return end == text.c_str() ? qxGetNaN() : number;
}

ConstNode::ConstNode(const std::string& text, unsigned long id)
    : EvalNode(id), real_(numberAtStart(text)), value_(boost::make_shared<ValRep>(real_))
{
    init();
}

ConstNode::ConstNode(double v, unsigned long id) : EvalNode(id), real_(v), value_(boost::make_shared<ValRep>(v))
{
    init();
}

ConstNode::ConstNode(const std::complex<double>& v, unsigned long id)
    : EvalNode(id), real_(v.imag() == 0 ? v.real() : qxGetNaN()), value_(boost::make_shared<ValRep>(v))
{
    init();
}

ConstNode::ConstNode(const ValRepPtr& value, unsigned long id)
    : EvalNode(id), real_(qxGetNaN()), value_(value->clone())
{
    if (!value_->isNaN() && value_->isScalar() && value_->getNBlocks() == 1 && !value_->isComplex())
        real_ = value_->getDouble();
    init();
}

ConstNode::~ConstNode() = default;

void ConstNode::init()
{
    scalar_ = value_;
    zero_ = value_->isZero();
    if (value_->isComplex() && !value_->isNaN())
        newLine(value_, "varcmplx", __LINE__); // found by whoever asks after an evaluation under EvalNoComplex
}

ValRepPtr ConstNode::eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const
{
    return (flags & EvalNoComplex) && value_->isComplex() ? ValRep::makeNaN() : value_;
}

bool ConstNode::isRealScalar(double& value) const
{
    if (qxIsNaN(real_))
        return false;
    value = real_;
    return true;
}

EvalNodePtr ConstNode::diff(const std::string&, const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeZeroNode();
}

EvalNodePtr ConstNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeConstNode(value_);
}

void ConstNode::ostreamOperator(std::ostream& out) const
{
    if (value_->isNaN() || value_->isZero() || !value_->isScalar() || value_->getNBlocks() != 1)
        out << value_->toString();
    else if (value_->isComplex())
        out << qxutil::toString(value_->getComplex());
    else if (value_->getDouble() < 0)
        out << '(' << qxutil::toString(value_->getDouble()) << ')';
    else
        out << qxutil::toString(value_->getDouble());
}

SmallConstNode::SmallConstNode(int v, unsigned long id)
    : EvalNode(id), number_(v), value_(v == 0 ? ValRep::makeZero() : boost::make_shared<ValRep>(double(v)))
{
}

SmallConstNode::~SmallConstNode() = default;

bool SmallConstNode::isRealScalar(double& value) const
{
    value = number_;
    return true;
}

EvalNodePtr SmallConstNode::diff(const std::string&, const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeZeroNode();
}

EvalNodePtr SmallConstNode::simplify(const VarEvaluatorPtr& evaluator) const
{
    return evaluator->getNodeMaker()->makeConstNode(number_);
}

void SmallConstNode::ostreamOperator(std::ostream& out) const
{
    out << (number_ == 0 ? "0" : number_ == 1 ? "1" : "(-1)");
}

// Strings ------------------------------------------------------------------------------------------------------------

StringNode::StringNode(const std::string& text, unsigned long id) : EvalNode(id), text_(text) {}

StringNode::~StringNode() = default;

ValRepPtr StringNode::eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned) const
{
    refuseString();
}

EvalNodePtr StringNode::diff(const std::string&, const VarEvaluatorPtr&) const
{
    refuseString();
}

EvalNodePtr StringNode::simplify(const VarEvaluatorPtr&) const
{
    refuseString();
}

void StringNode::gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const
{
    refuseString();
}

void StringNode::ostreamOperator(std::ostream& out) const
{
    out << text_;
}

// Operations ---------------------------------------------------------------------------------------------------------

OpNode::OpNode(const FunObjPtr& fun, EvalNodes args, unsigned long id)
    : EvalNode(id), fun_(fun), args_(std::move(args)),
      allConst_(std::all_of(args_.begin(), args_.end(), [](const EvalNodePtr& a) { return a->isScalar(); }))
{
}

OpNode::~OpNode()
{
    delete program_.load(std::memory_order_relaxed);
    qxeval::releaseLater(args_);
}

ValRepPtr OpNode::apply(ValRepPtr* values, unsigned flags) const
{
    if (!(flags & numbersWanted) && !allConst_)
        return ValRep::makeNaN();
    ValRepPtr result;
    switch (args_.size()) {
    case 1:
        result = ValRep::applyOp(*fun_, values[0], flags);
        break;
    case 2:
        result = ValRep::applyOp(*fun_, values[0], values[1], flags);
        break;
    default: {
        std::vector<ValRepPtr> all(std::make_move_iterator(values), std::make_move_iterator(values + args_.size()));
        result = ValRep::applyOp(*fun_, all, flags);
    }
    }
    if (!result)
        return ValRep::makeNaN();
    result->setEvaluated();
    return result;
}

/// The program of the graph below, made at the first call; null when there is none.
const qxeval::Program* OpNode::program() const
{
    switch (plan_.load(std::memory_order_acquire)) {
    case Plan::Run:
        return program_.load(std::memory_order_relaxed);
    case Plan::Own:
        return nullptr;
    case Plan::New:
        break;
    }
    if (!qxeval::Program::hasKernel(*this)) {
        plan_.store(Plan::Own, std::memory_order_relaxed);
        return nullptr;
    }
    std::unique_ptr<const qxeval::Program> made = qxeval::Program::compile({this});
    const qxeval::Program* there = nullptr; // what another thread made is as good
    if (program_.compare_exchange_strong(there, made.get(), std::memory_order_acq_rel))
        there = made.release();
    plan_.store(Plan::Run, std::memory_order_release);
    return there;
}

ValRepPtr OpNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    const EvaluationScope scope(evaluator);
    const qxeval::Program* const compiled = program();
    if (!compiled)
        return walk(evaluator, cache, flags);
    if (flags & numbersWanted) {
        ValRepPtr value;
        compiled->run(evaluator, cache, flags, &value);
        return value;
    }
    compiled->visitLeaves(evaluator, cache, flags);
    return allConst_ ? walk(evaluator, cache, flags) : ValRep::makeNaN();
}

/// This operation alone applied to the values of its arguments.
ValRepPtr OpNode::walk(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    if (qxeval::lacksStack(qxeval::deepEvalRoom))
        return DeepEvaluation(evaluator, cache, flags)(*this);
    // The results are held by these locals alone, so that apply may overwrite a temporary.
    switch (args_.size()) {
    case 1: {
        ValRepPtr value = args_[0]->eval(evaluator, cache, flags);
        return apply(&value, flags);
    }
    case 2: {
        ValRepPtr values[2];
        values[0] = args_[0]->eval(evaluator, cache, flags);
        values[1] = args_[1]->eval(evaluator, cache, flags);
        return apply(values, flags);
    }
    default: {
        std::vector<ValRepPtr> values;
        values.reserve(args_.size());
        for (const EvalNodePtr& arg : args_)
            values.push_back(arg->eval(evaluator, cache, flags));
        return apply(values.data(), flags);
    }
    }
}

void OpNode::ostreamOperator(std::ostream& out) const
{
    qxeval::requireStack();
    fun_->ostreamOperator(args_, out);
}

// Proxies ------------------------------------------------------------------------------------------------------------

ProxyNode::ProxyNode(const EvalNodePtr& target, unsigned long id) : EvalNode(id), target_(target) {}

ProxyNode::~ProxyNode()
{
    qxeval::releaseLater(target_);
}

void ProxyNode::markAsShared() const
{
    if (isShared())
        return;
#pragma omp critical(ProxyNodeIncUse)
    unique_.store(false, std::memory_order_relaxed);
}

ValRepPtr ProxyNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    return target_->eval(evaluator, cache, flags);
}

void ProxyNode::ostreamOperator(std::ostream& out) const
{
    target_->ostreamOperator(out);
}

// Variables ----------------------------------------------------------------------------------------------------------

VarNode::VarNode(const std::string& name, unsigned long id) : EvalNode(id), name_(name) {}

VarNode::~VarNode() = default;

ValRepPtr VarNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    const EvaluationScope scope(evaluator);
    auto [found, rep] = cache->getVar(name_, flags);
    if (ValRepOps::isKnownFailure(*rep, evaluator, flags)) [[unlikely]]
        return std::move(rep); // with the story that it has
    const bool known = rep->isEvaluated() && !rep->isNaN();
    const bool entered = known || compute(found, rep, evaluator, cache, flags);
    if (entered && (flags & EvalValues) && (rep->isNaN() || ((flags & EvalNoComplex) && rep->isComplex())))
        reportFailure(rep, evaluator, flags);
    if (rep->isNaN())
        ValRepOps::rememberFailure(*rep, evaluator, flags);
    return std::move(rep);
}

/// Fills a value that is not known yet. False when the variable turned out to be defined through itself.
/// Out of line: definitions nest through eval, whose frame stays small that way.
__attribute__((noinline)) bool VarNode::compute(bool found, const ValRepPtr& rep, const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache,
                      unsigned flags) const
{
    const RecLimCheck check(evaluator, name_);
    if (check.isError()) {
        if (rep->isNaN())
            rep->reset(cache->getEmpty(), true);
        rep->setNaN();
        rep->getErrors()->append(*check.getErrors());
        return false;
    }
    VarNodeShadow& shadow = evaluator->getShadowHandler()->shadowOf<VarNodeShadow>(getId());
    if (!found) {
        shadow.initCache(evaluator, name_);
    } else if (shadow.shouldUpdateCache(evaluator->getVersion())) {
        shadow.initCache(evaluator, name_);
        rep->reset(cache->getEmpty(), true);
    } else if ((flags & EvalValues) && rep->isNaN()) {
        rep->reset(cache->getEmpty(), true);
    }

    const EvalNodePtr root = shadow.root; // a nested evaluation may give the shadow another definition
    const bool wanted = (flags & EvalValues) || (root && !found && (flags & numbersWanted));
    if (!wanted) {
        rep->setNaN();
    } else if (root) {
        const ValRepPtr value = root->eval(evaluator, cache, flags);
        rep->reset(value, true);
    } else {
        evaluator->eval(evaluator, name_, flags, rep, cache);
        rep->setEvaluated();
    }
    if ((flags & EvalGatherBVars) && !root)
        cache->setBVar(name_);
    return true;
}

/// Adds this variable to the story of a NaN; a complex value where none is allowed becomes one.
__attribute__((noinline)) void VarNode::reportFailure(const ValRepPtr& rep, const VarEvaluatorPtr& evaluator, unsigned flags) const
{
    if (!rep->isNaN() && (flags & EvalNoComplex) && rep->isComplex()) {
        rep->setNaN();
        if (rep->getErrors()->isEmpty())
            newLine(rep, "varcmplx", __LINE__)["var"] = name_;
    }
    const VarNodeShadow& shadow = evaluator->getShadowHandler()->shadowOf<VarNodeShadow>(getId());
    if (rep->isNaN() && shadow.root) {
        ErrInfo& errors = newLine(rep, "vareval", __LINE__);
        errors["var"] = name_;
        errors["defexpr"] = qxeval::nodeTextOrDots(*shadow.root);
    }
}

void VarNode::ostreamOperator(std::ostream& out) const
{
    out << name_;
}
