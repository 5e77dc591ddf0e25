// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "funid.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"

#include <memory>
#include <string>

/// The one factory of EvalNode objects: gives ids, folds constants and trivial identities, and keeps equal
/// subexpressions one node.
///
/// Folding goes before any allocation and wins over evaluation: 0*x is 0 even where x has a pole, a constant expression
/// whose value is a NaN stays an operation and reports when it is evaluated. Shared are constants, variables, operations
/// made from a FunId, derivative nodes and host operators of up to three arguments; operations made from a function
/// object are not. Sums and products are ordered by id, so that x*y and y*x are one node.
///
/// Threads: any. Sharing tables exist per OpenMP thread number and are guarded without waiting: a thread that finds its
/// table in use, or has a number past the last table, builds an unshared node. Equal nodes of two threads are never
/// merged. Held by boost::shared_ptr and kept by the evaluators of a model; nodes keep living after it is gone.
/// Limits: a table of operations or trees is wiped when it holds 16384 entries; later requests then build new nodes.
/// Fails, all operations: std::bad_alloc passes through; the factory stays usable.
class QX_API NodeMaker
{
public:
    NodeMaker();
    ~NodeMaker();
    NodeMaker(const NodeMaker&) = delete;
    NodeMaker& operator=(const NodeMaker&) = delete;

    /// The three shared constants; ids 0, 1 and 2.
    EvalNodePtr makeZeroNode() const { return zero_; }
    EvalNodePtr makeUnitNode() const { return unit_; }
    EvalNodePtr makeNUnitNode() const { return nunit_; }

    /// A constant: 0, 1 and -1 give the shared nodes (-0.0 too), equal numbers one node, all NaNs one node.
    EvalNodePtr makeConstNode(const double& v);
    /// The same for complex constants; an imaginary part of 0 gives the real constant.
    EvalNodePtr makeConstNode(const std::complex<double>& v);
    /// Reads the text as a number; a text that is none gives the NaN constant.
    EvalNodePtr makeConstNode(const std::string& text);
    /// A value of one block goes to the number forms (a zero value gives the zero node); any other value is cloned into
    /// an unshared node.
    EvalNodePtr makeConstNode(const ValRepPtr& value);
    EvalNodePtr makeConstNode(const char* text) { return makeConstNode(std::string(text)); }
    EvalNodePtr makeConstNode(int v) { return makeConstNode(static_cast<double>(v)); }

    EvalNodePtr makeStringNode(const std::string& text);
    /// One node a name (within one thread), so that all uses of a variable share its shadow.
    EvalNodePtr makeVarNode(const std::string& name);

    /// A fixed operator on its arguments, folded where it can be, shared otherwise.
    EvalNodePtr makeOpNode(FunId id, const EvalNodePtr& a);
    EvalNodePtr makeOpNode(FunId id, const EvalNodePtr& a, const EvalNodePtr& b);
    /// One or two arguments; any other number raises "Evaluation_internal_error".
    EvalNodePtr makeOpNode(FunId id, const EvalNodes& args);

    /// A function object on its arguments: folded when all are constants and the result is no NaN (nor complex from
    /// real arguments), never shared. Calls without arguments are never folded. Keeps f.
    EvalNodePtr makeOpNode(const FunObjPtr& f, const EvalNodePtr& a);
    EvalNodePtr makeOpNode(const FunObjPtr& f, const EvalNodePtr& a, const EvalNodePtr& b);
    EvalNodePtr makeOpNode(const FunObjPtr& f, const EvalNodes& args);

    /// The indirection through which a shared operation is reached.
    EvalNodePtr makeProxyNode(const EvalNodePtr& target);
    /// An operator of the host, shared for up to three arguments; the raw form always makes a new node.
    EvalNodePtr makeGenOpNode(const std::string& name, const EvalNodes& args);
    EvalNodePtr makeGenOpNodeRaw(const std::string& name, const EvalNodes& args);

    /// d(a,b) with mode 0 (total) or pd(a,b) with mode 1 (partial), resolved at its first use.
    EvalNodePtr makeDiffNode(const EvalNodePtr& a, const EvalNodePtr& b, unsigned mode);
    EvalNodePtr makeDepNode(const EvalNodePtr& a, const EvalNodePtr& b);
    EvalNodePtr makeUDepNode(const EvalNodePtr& a);
    EvalNodePtr makeJacDepNode(const EvalNodePtr& a, const EvalNodePtr& b);
    EvalNodePtr makeJacUDepNode(const EvalNodePtr& a);
    /// The derivative of the host variable `name`, whose node is base, with respect to var.
    EvalNodePtr makeVarDiffNode(const EvalNodePtr& base, const std::string& name, const std::string& var);

    /// The fixed function object of an operator. An id that does not have that arity raises
    /// "Evaluation_internal_error".
    const FunObjPtr& idToFun(FunId id, int arity) const;

    /// The tree on a node, shared through a table like the nodes themselves.
    EvalTreePtr makeTree(const EvalNodePtr& node);
    EvalTreePtr makeNamedTree(const EvalNodePtr& node, const std::string& text);

    /// Empties all tables: sharing with earlier nodes ends, ids go on. Nodes in use stay alive. A table in use by another
    /// thread is emptied as soon as that thread lets go of it.
    void reset();

private:
    struct Tables;
    class Lease;

    unsigned long newId();
    template <class Node, class... Args>
    EvalNodePtr makeNode(Args&&... args);
    template <class Table, class Key, class Make>
    EvalNodePtr findOrMake(Table Tables::*table, const Key& key, Make&& make);
    template <class Table, class Key, class Make>
    EvalNodePtr findOrShare(Table Tables::*table, const Key& key, Make&& make);
    template <class Table, class Key, class Make>
    EvalTreePtr findOrMakeTree(Table Tables::*table, const Key& key, Make&& make);

    unsigned long nextId_ = 0;
    EvalNodePtr zero_, unit_, nunit_;
    FunObjPtr unary_[UPLUS + 1], binary_[UPLUS + 1];
    std::vector<std::unique_ptr<Tables>> tables_;
};
