// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalnodes.hpp"

#include "borrowedvalues_detail.hpp"
#include "cancel_detail.hpp"
#include "errinfo.hpp"
#include "evalfun.hpp"
#include "evalrep_detail.hpp"
#include "evalshadow.hpp"
#include "graphwalk_detail.hpp"
#include "noderelease_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "stackroom_detail.hpp"
#include "stagedprogram_detail.hpp"
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
        qxeval::BorrowedValues all;
        all.values.assign(std::make_move_iterator(values), std::make_move_iterator(values + args_.size()));
        result = ValRep::applyOp(*fun_, all.values, flags);
    }
    }
    if (!result)
        return ValRep::makeNaN();
    result->setEvaluated();
    return result;
}

ValRepPtr OpNode::eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    const EvaluationScope scope(evaluator);
    const qxeval::StagedProgram& program = qxeval::programOf(*this, program_);
    if ((flags & numbersWanted) || allConst_) {
        ValRepPtr value;
        program.run(evaluator, cache, flags, &value);
        return value;
    }
    program.visitLeaves(evaluator, cache, flags);
    return ValRep::makeNaN();
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

namespace {

/// Marks a variable for as long as its value is computed, and as circular when it is met again in that time.
class OpenVariable
{
public:
    explicit OpenVariable(VarNodeShadow& shadow) : shadow_(shadow), outermost_(!shadow.open)
    {
        shadow_.circular = !outermost_;
        shadow_.open = true;
    }
    ~OpenVariable()
    {
        if (outermost_)
            shadow_.open = false;
    }
    OpenVariable(const OpenVariable&) = delete;
    OpenVariable& operator=(const OpenVariable&) = delete;

private:
    VarNodeShadow& shadow_;
    const bool outermost_;
};

} // namespace

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
    if (rep->isNaN()) {
        const bool circular = !known && evaluator->getShadowHandler()->shadowOf<VarNodeShadow>(getId()).circular;
        ValRepOps::rememberFailure(*rep, evaluator, flags, circular);
    }
    return std::move(rep);
}

/// Fills a value that is not known yet. False when the variable turned out to be defined through itself.
/// Out of line: definitions nest through eval, whose frame stays small that way.
__attribute__((noinline)) bool VarNode::compute(bool found, const ValRepPtr& rep, const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache,
                      unsigned flags) const
{
    qxeval::RunScope::throwIfCancelled();
    VarNodeShadow& shadow = evaluator->getShadowHandler()->shadowOf<VarNodeShadow>(getId());
    const OpenVariable open(shadow);
    const RecLimCheck check(evaluator, name_);
    if (check.isError()) {
        if (rep->isNaN())
            rep->reset(cache->getEmpty(), true);
        rep->setNaN();
        rep->getErrors()->append(*check.getErrors());
        return false;
    }
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
