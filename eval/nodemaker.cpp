// SPDX-License-Identifier: LicenseRef-qxkernel
#include "nodemaker.hpp"

#include "derivativenodes.hpp"
#include "evalfun.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "evaltree.hpp"
#include "funfactory.hpp"
#include "qxexception.hpp"
#include "qxhash.hpp"
#include "qxnumber.hpp"
#include "qxparallel.hpp"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cmath>
#include <omp.h>
#include <optional>

namespace {

using Id = unsigned long;
using IdPair = std::pair<Id, Id>;

/// Operations and trees that a table holds before it is wiped.
constexpr unsigned tableLimit = 0x3fff;

/// Derivative and dependency nodes that only operand ids tell apart.
enum class Form { TotalDiff, PartialDiff, Dep, UDep, JacDep, JacUDep };

bool allConstant(const EvalNodes& args)
{
    return !args.empty()
           && std::all_of(args.begin(), args.end(), [](const EvalNodePtr& a) { return a->isScalar(); });
}

bool isWhole(double x)
{
    return std::floor(x) == x && !std::isinf(x);
}

/// The value of an operator on a real constant; nothing if it is left to the general way. What a function computes comes
/// from its object, so that folding gives the bits that evaluation gives.
std::optional<double> foldReal(FunId id, const FunObj& f, double x)
{
    switch (id) {
    case ABS:
        return std::fabs(x);
    case UMINUS:
        return -x;
    case POW2:
        return x * x;
    case POW3:
        return x * (x * x);
    case POW4:
        return (x * x) * (x * x);
    case LOG:
        if (!(x > 0))
            return {};
        break;
    case SQRT:
        if (!(x >= 0))
            return {};
        break;
    case COS:
    case EXP:
    case SIN:
        break;
    default:
        return {};
    }
    const auto number = boost::make_shared<double>(x);
    f(number);
    return *number;
}

std::optional<double> foldReal(FunId id, double x, double y)
{
    switch (id) {
    case GE:
        return x >= y;
    case GT:
        return x > y;
    case LE:
        return x <= y;
    case LT:
        return x < y;
    case PLUS:
        return x + y;
    case MINUS:
        return x - y;
    case TIMES:
        return x * y;
    case DIV:
        if (y != 0)
            return x / y;
        return {};
    default:
        return {};
    }
}

} // namespace

/// The sharing tables of one thread number. Several threads can have the same number (all that are in no parallel
/// region have 0), hence the flag.
struct NodeMaker::Tables
{
    std::atomic_flag busy = ATOMIC_FLAG_INIT;
    std::atomic<bool> stale{false};

    QxHashMap<EvalNodePtr, double> reals;
    QxHashMap<EvalNodePtr, std::complex<double>> complexes;
    QxHashMap<EvalNodePtr, std::string> variables;
    QxHashMap<EvalNodePtr, std::pair<FunId, Id>> unary;
    QxHashMap<EvalNodePtr, std::pair<FunId, IdPair>> binary;
    QxHashMap<EvalNodePtr, std::pair<Form, IdPair>> derivatives;
    QxHashMap<EvalNodePtr, std::pair<Id, std::pair<std::string, std::string>>> variableDerivatives;
    QxHashMap<EvalNodePtr, std::pair<std::string, std::pair<unsigned, std::pair<Id, IdPair>>>> hostOperators;
    QxHashMap<EvalTreePtr, Id> trees;
    QxHashMap<EvalTreePtr, std::pair<Id, std::string>> namedTrees;

    void clear()
    {
        reals.clear();
        complexes.clear();
        variables.clear();
        unary.clear();
        binary.clear();
        derivatives.clear();
        variableDerivatives.clear();
        hostOperators.clear();
        trees.clear();
        namedTrees.clear();
    }
};

/// Holds the calling thread's tables for one search or insertion. Without waiting: empty when they are in use or the
/// thread's number is past the last one.
class NodeMaker::Lease
{
public:
    explicit Lease(const NodeMaker& maker) : Lease(maker, static_cast<std::size_t>(omp_get_thread_num())) {}
    Lease(const NodeMaker& maker, std::size_t number)
    {
        if (number < maker.tables_.size() && !maker.tables_[number]->busy.test_and_set(std::memory_order_acquire)) {
            tables_ = maker.tables_[number].get();
            if (tables_->stale.load(std::memory_order_relaxed) && tables_->stale.exchange(false))
                tables_->clear();
        }
    }
    ~Lease()
    {
        if (tables_)
            tables_->busy.clear(std::memory_order_release);
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    explicit operator bool() const { return tables_ != nullptr; }
    Tables* operator->() const { return tables_; }
    Tables& operator*() const { return *tables_; }

private:
    Tables* tables_ = nullptr;
};

NodeMaker::NodeMaker()
{
    zero_ = boost::make_shared<ZeroNode>(newId());
    unit_ = boost::make_shared<UnitNode>(newId());
    nunit_ = boost::make_shared<NUnitNode>(newId());
    for (int id = ABS; id <= UPLUS; ++id)
        (funArity(FunId(id)) == 1 ? unary_ : binary_)[id] = makeFunObj(FunId(id));
    const auto threads = static_cast<std::size_t>(MAXAVAILABLETHREADS());
    for (std::size_t i = 0; i < threads; ++i)
        tables_.push_back(std::make_unique<Tables>());
}

NodeMaker::~NodeMaker() = default;

unsigned long NodeMaker::newId()
{
    unsigned long id;
#pragma omp critical(NodeMakerIdCounter)
    id = nextId_++;
    return id;
}

template <class Node, class... Args>
EvalNodePtr NodeMaker::makeNode(Args&&... args)
{
    return boost::make_shared<Node>(std::forward<Args>(args)..., newId());
}

/// The node under a key of the thread's table, made and entered if it is not there. Building happens outside the lease.
template <class Table, class Key, class Make>
EvalNodePtr NodeMaker::findOrMake(Table Tables::*table, const Key& key, Make&& make)
{
    if (const Lease lease(*this); lease)
        if (const QxHashLookup hit = ((*lease).*table).lookup(key))
            return ((*lease).*table).at(hit.slot);
    const EvalNodePtr node = make();
    if (const Lease lease(*this); lease)
        ((*lease).*table).insert(key, node);
    return node;
}

/// The same for operations: they are reached through a proxy, which a second request marks as shared, and the table is
/// wiped when it is full.
template <class Table, class Key, class Make>
EvalNodePtr NodeMaker::findOrShare(Table Tables::*table, const Key& key, Make&& make)
{
    if (const Lease lease(*this); lease)
        if (const QxHashLookup hit = ((*lease).*table).lookup(key)) {
            const EvalNodePtr& found = ((*lease).*table).at(hit.slot);
            static_cast<const ProxyNode&>(*found).markAsShared();
            return found;
        }
    const EvalNodePtr target = make();
    if (target->isScalar())
        return target; // folded: constants have no proxy
    const EvalNodePtr proxy = makeProxyNode(target);
    if (const Lease lease(*this); lease) {
        Table& entries = (*lease).*table;
        if (entries.size() > tableLimit)
            entries.reset();
        entries.insert(key, proxy);
    }
    return proxy;
}

// Constants and leaves -----------------------------------------------------------------------------------------------

EvalNodePtr NodeMaker::makeConstNode(const double& v)
{
    if (v == 0)
        return zero_;
    if (v == 1)
        return unit_;
    if (v == -1)
        return nunit_;
    return findOrMake(&Tables::reals, v, [&] { return makeNode<ConstNode>(v); });
}

EvalNodePtr NodeMaker::makeConstNode(const std::complex<double>& v)
{
    if (v.imag() == 0)
        return makeConstNode(v.real());
    return findOrMake(&Tables::complexes, v, [&] { return makeNode<ConstNode>(v); });
}

EvalNodePtr NodeMaker::makeConstNode(const std::string& text)
{
    double v = qxGetNaN();
    ConstNode(text, 0).isRealScalar(v); // false for what is no number
    return makeConstNode(v);
}

EvalNodePtr NodeMaker::makeConstNode(const ValRepPtr& value)
{
    if (value->isNaN())
        return makeNode<ConstNode>(value);
    if (value->isZero())
        return zero_;
    if (value->isScalar() && value->getNBlocks() == 1)
        return value->isComplex() ? makeConstNode(value->getComplex()) : makeConstNode(value->getDouble());
    return makeNode<ConstNode>(value);
}

EvalNodePtr NodeMaker::makeStringNode(const std::string& text)
{
    return makeNode<StringNode>(text);
}

EvalNodePtr NodeMaker::makeVarNode(const std::string& name)
{
    return findOrMake(&Tables::variables, name, [&] { return makeNode<VarNode>(name); });
}

// Operators ----------------------------------------------------------------------------------------------------------

const FunObjPtr& NodeMaker::idToFun(FunId id, int arity) const
{
    if (id >= ABS && id <= UPLUS && (arity == 1 || arity == 2))
        if (const FunObjPtr& f = (arity == 1 ? unary_ : binary_)[id])
            return f;
    QX_RAISE("nodemaker", "Evaluation_internal_error");
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const EvalNodePtr& a)
{
    const FunObjPtr& f = idToFun(id, 1);
    if (id == UPLUS)
        return a;
    double x;
    if (a->isRealScalar(x))
        if (const std::optional<double> v = foldReal(id, *f, x))
            return makeConstNode(*v);
    if (a->isScalar()) {
        ValRepPtr v = a->getScalar();
        const ValRepPtr r = ValRep::applyOp(*f, v, EvalKeepReal);
        if (!r->isNaN())
            return makeConstNode(r);
    }
    return findOrShare(&Tables::unary, std::pair(id, a->getId()), [&] { return makeOpNode(f, a); });
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const EvalNodePtr& a, const EvalNodePtr& b)
{
    const FunObjPtr& f = idToFun(id, 2);
    if ((id == PLUS || id == TIMES) && b->getId() < a->getId())
        return makeOpNode(id, b, a);

    switch (id) {
    case PLUS:
        if (a->isZero())
            return b;
        if (b->isZero())
            return a;
        break;
    case MINUS:
        if (a->isZero())
            return makeOpNode(UMINUS, b);
        if (b->isZero())
            return a;
        break;
    case TIMES:
        if (a->isZero() || b->isUnit())
            return a;
        if (b->isZero() || a->isUnit())
            return b;
        if (a->isNUnit())
            return makeOpNode(UMINUS, b);
        if (b->isNUnit())
            return makeOpNode(UMINUS, a);
        if (a == b)
            return makeOpNode(POW2, a);
        break;
    case POW:
        if (double e; b->isRealScalar(e) && isWhole(e))
            for (const auto& [exponent, power] : {std::pair(2.0, POW2), {3.0, POW3}, {4.0, POW4}, {-2.0, POWM2},
                                                  {-1.0, POWM1}})
                if (e == exponent)
                    return makeOpNode(power, a);
        break;
    default:
        break;
    }

    double x, y;
    if (a->isRealScalar(x) && b->isRealScalar(y))
        if (const std::optional<double> v = foldReal(id, x, y))
            return makeConstNode(*v);
    if (a->isScalar() && b->isScalar()) {
        ValRepPtr va = a->getScalar(), vb = b->getScalar();
        const ValRepPtr r = ValRep::applyOp(*f, va, vb, EvalKeepReal);
        if (!r->isNaN())
            return makeConstNode(r);
    }
    return findOrShare(&Tables::binary, std::pair(id, IdPair(a->getId(), b->getId())),
                       [&] { return makeOpNode(f, a, b); });
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const EvalNodes& args)
{
    if (args.size() == 1)
        return makeOpNode(id, args[0]);
    if (args.size() == 2)
        return makeOpNode(id, args[0], args[1]);
    QX_RAISE("nodemaker", "Evaluation_internal_error");
}

EvalNodePtr NodeMaker::makeOpNode(const FunObjPtr& f, const EvalNodePtr& a)
{
    return makeOpNode(f, EvalNodes{a});
}

EvalNodePtr NodeMaker::makeOpNode(const FunObjPtr& f, const EvalNodePtr& a, const EvalNodePtr& b)
{
    return makeOpNode(f, EvalNodes{a, b});
}

EvalNodePtr NodeMaker::makeOpNode(const FunObjPtr& f, const EvalNodes& args)
{
    if (allConstant(args)) {
        std::vector<ValRepPtr> values;
        bool anyComplex = false;
        for (const EvalNodePtr& arg : args) {
            values.push_back(arg->getScalar());
            anyComplex = anyComplex || values.back()->isComplex();
        }
        const ValRepPtr r = args.size() == 1   ? ValRep::applyOp(*f, values[0], EvalValues)
                            : args.size() == 2 ? ValRep::applyOp(*f, values[0], values[1], EvalValues)
                                               : ValRep::applyOp(*f, values, EvalValues);
        // Whether a real constant may turn complex is for the evaluation's flags to say.
        if (!r->isNaN() && (anyComplex || !r->checkComplex()))
            return makeConstNode(r);
    }
    const std::string name = f->getName();
    if (args.size() == 1 && name == "U+")
        return args[0];
    if (args.size() == 2 && name == "+") {
        if (args[0]->isZero())
            return args[1];
        if (args[1]->isZero())
            return args[0];
    }
    if (args.size() == 2 && name == "*")
        for (int i = 0; i < 2; ++i) {
            const EvalNodePtr &factor = args[i], &other = args[1 - i];
            if (factor->isZero())
                return factor;
            if (factor->isUnit())
                return other;
            if (factor->isNUnit())
                return makeOpNode(UMINUS, other);
        }
    return makeNode<OpNode>(f, args);
}

EvalNodePtr NodeMaker::makeProxyNode(const EvalNodePtr& target)
{
    return makeNode<ProxyNode>(target);
}

// Host operators, derivatives, dependency tests ----------------------------------------------------------------------

EvalNodePtr NodeMaker::makeGenOpNode(const std::string& name, const EvalNodes& args)
{
    if (args.size() > 3)
        return makeGenOpNodeRaw(name, args);
    const auto id = [&](std::size_t i) { return i < args.size() ? args[i]->getId() : 0; };
    const auto count = static_cast<unsigned>(args.size());
    return findOrShare(&Tables::hostOperators, std::pair(name, std::pair(count, std::pair(id(0), IdPair(id(1), id(2))))),
                       [&] { return makeGenOpNodeRaw(name, args); });
}

EvalNodePtr NodeMaker::makeGenOpNodeRaw(const std::string& name, const EvalNodes& args)
{
    return makeNode<GenOpNode>(name, args);
}

EvalNodePtr NodeMaker::makeDiffNode(const EvalNodePtr& a, const EvalNodePtr& b, unsigned mode)
{
    return findOrShare(&Tables::derivatives,
                       std::pair(mode ? Form::PartialDiff : Form::TotalDiff, IdPair(a->getId(), b->getId())),
                       [&] { return makeNode<DiffNode>(a, b, mode); });
}

EvalNodePtr NodeMaker::makeDepNode(const EvalNodePtr& a, const EvalNodePtr& b)
{
    return findOrShare(&Tables::derivatives, std::pair(Form::Dep, IdPair(a->getId(), b->getId())),
                       [&] { return makeNode<DepNode>(a, b); });
}

EvalNodePtr NodeMaker::makeUDepNode(const EvalNodePtr& a)
{
    return findOrShare(&Tables::derivatives, std::pair(Form::UDep, IdPair(a->getId(), 0)),
                       [&] { return makeNode<UDepNode>(a); });
}

EvalNodePtr NodeMaker::makeJacDepNode(const EvalNodePtr& a, const EvalNodePtr& b)
{
    return findOrShare(&Tables::derivatives, std::pair(Form::JacDep, IdPair(a->getId(), b->getId())),
                       [&] { return makeNode<JacDepNode>(a, b); });
}

EvalNodePtr NodeMaker::makeJacUDepNode(const EvalNodePtr& a)
{
    return findOrShare(&Tables::derivatives, std::pair(Form::JacUDep, IdPair(a->getId(), 0)),
                       [&] { return makeNode<JacUDepNode>(a); });
}

EvalNodePtr NodeMaker::makeVarDiffNode(const EvalNodePtr& base, const std::string& name, const std::string& var)
{
    return findOrShare(&Tables::variableDerivatives, std::pair(base->getId(), std::pair(name, var)),
                       [&] { return makeNode<VarDiffNode>(base, name, var); });
}

// Trees --------------------------------------------------------------------------------------------------------------

template <class Table, class Key, class Make>
EvalTreePtr NodeMaker::findOrMakeTree(Table Tables::*table, const Key& key, Make&& make)
{
    if (const Lease lease(*this); lease)
        if (const QxHashLookup hit = ((*lease).*table).lookup(key))
            return ((*lease).*table).at(hit.slot);
    const EvalTreePtr tree = make();
    if (const Lease lease(*this); lease) {
        Table& entries = (*lease).*table;
        if (entries.size() > tableLimit)
            entries.reset();
        entries.insert(key, tree);
    }
    return tree;
}

EvalTreePtr NodeMaker::makeTree(const EvalNodePtr& node)
{
    return findOrMakeTree(&Tables::trees, node->getId(), [&] { return boost::make_shared<EvalTree>(node); });
}

EvalTreePtr NodeMaker::makeNamedTree(const EvalNodePtr& node, const std::string& text)
{
    return findOrMakeTree(&Tables::namedTrees, std::pair(node->getId(), text),
                          [&] { return boost::make_shared<EvalTree>(node, text); });
}

void NodeMaker::reset()
{
    for (std::size_t i = 0; i < tables_.size(); ++i) {
        tables_[i]->stale.store(true);
        const Lease lease(*this, i); // empties it, now or when it is next leased
    }
}
