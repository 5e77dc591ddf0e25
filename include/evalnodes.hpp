// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "depinfo.hpp"
#include "evalflags.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"
#include "qxhash.hpp"

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace qxeval {
class StagedProgram;
}

/// Ids of nodes that a walk has seen.
using NodeIdSet = QxHashSet<unsigned long, QxHashFun, QxHashComp>;
/// A set of names.
using NameSet = QxHashSet<std::string, QxHashFun, QxHashComp>;
/// Name to id of a flat definition.
using DefIds = QxHashMap<int, std::string, QxHashFun, QxHashComp>;

/// A node of the evaluation graph: immutable once made, shared between trees and threads.
///
/// Whatever changes with the state of an evaluation (a variable's definition, a cached derivative) lives in a shadow that
/// belongs to the evaluator and is found by the node's id. Nodes are made by a NodeMaker and held by boost::shared_ptr;
/// releasing a graph takes no machine stack in proportion to its depth. The virtual operations are an interface to other
/// native libraries: their order is fixed, new ones go to the end.
///
/// Fails, all operations: std::bad_alloc passes through; nodes, caches and shadows stay usable.
class QX_API EvalNode
{
public:
    explicit EvalNode(unsigned long id) : id_(id) {}
    virtual ~EvalNode();

    /// The value over the points that evaluator and cache describe. Element failures give a NaN value with its story,
    /// raised only when somebody reads it. Both pointers are lent; the result may be shared, so it is only read.
    virtual ValRepPtr eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const = 0;

    /// The node is the constant 0, 1 or -1.
    virtual bool isZero() const { return false; }
    virtual bool isUnit() const { return false; }
    virtual bool isNUnit() const { return false; }
    /// The node is a constant: its value does not depend on the evaluator.
    virtual bool isScalar() const { return false; }
    /// The constant value; a NaN value on a node that is none.
    virtual ValRepPtr getScalar() const;
    /// True, and the number, for a real constant that is no NaN.
    virtual bool isRealScalar(double& value) const;
    /// The node is a string argument.
    virtual bool isString() const { return false; }

    /// The derivative with respect to a variable, made through the evaluator's NodeMaker.
    virtual EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr& evaluator) const = 0;
    /// What the value depends on, among the named variables; an empty list means any basic variable.
    virtual DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const;
    /// What the derivatives with respect to the named variables depend on: empty for an expression linear in them.
    virtual DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator) const;
    /// An equivalent node, rebuilt bottom up through the functions' simplification rules.
    virtual EvalNodePtr simplify(const VarEvaluatorPtr& evaluator) const = 0;
    /// Collects the basic variables below the node; `seen` keeps a node from being walked twice.
    virtual void gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names) const = 0;
    /// The name of a variable, the text of a string; empty otherwise.
    virtual std::string getVarName() const;
    /// Prints the node as expression text.
    virtual void ostreamOperator(std::ostream& out) const = 0;
    /// Feeds the expression compiler; gives the id of the definition that holds the node's value. Ids are taken from nextId,
    /// children first; a node is defined once in each compiler, a name once in each map. A variable with a definition of the
    /// host's is tied to that one's value; one without stays undefined: names tells its id, and the caller makes it an input.
    /// Raises "Cannot create definitions from " and the class, or the function's name, for what has no form in compiled
    /// code, "Definition set may not contain complex variables.", "Expression_nested_too_deeply" for names defined by names
    /// without end. After a failure comp and names are of no more use.
    virtual int createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const;

    unsigned long getId() const { return id_; }
    /// The node's shadow for an evaluator, made if it is not there. Defined in evalshadow.hpp.
    template <class T>
    void getShadow(const VarEvaluatorPtr& evaluator, boost::shared_ptr<T>& out) const;

private:
    const unsigned long id_;
};

/// A constant of any shape. Construction is the only writer; all evaluations share the stored value.
class QX_API ConstNode : public EvalNode
{
public:
    /// Reads the number at the start of the text as strtod does in the "C" locale, "0x1F" as 31; NaN if there is none.
    ConstNode(const std::string& text, unsigned long id);
    ConstNode(double v, unsigned long id);
    ConstNode(const std::complex<double>& v, unsigned long id);
    /// Clones the value.
    ConstNode(const ValRepPtr& value, unsigned long id);
    ~ConstNode() override;

    /// The shared value. With EvalNoComplex a complex constant gives a NaN value without a record of its own; the line
    /// "varcmplx" is found in the record of the stored value.
    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    bool isZero() const override { return zero_; }
    bool isScalar() const override { return true; }
    ValRepPtr getScalar() const override { return scalar_; }
    bool isRealScalar(double& value) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override {}
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

private:
    void init();

    double real_;
    ValRepPtr value_;
    ValRepPtr scalar_;
    bool zero_;
};

/// The constants 0, 1 and -1: one node each in a NodeMaker, recognised without looking at a value.
class QX_API SmallConstNode : public EvalNode
{
public:
    SmallConstNode(int v, unsigned long id);
    ~SmallConstNode() override;

    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned) const override { return value_; }
    bool isScalar() const override { return true; }
    ValRepPtr getScalar() const override { return value_; }
    bool isRealScalar(double& value) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override {}
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

private:
    const int number_;
    const ValRepPtr value_;
};

class QX_API ZeroNode : public SmallConstNode
{
public:
    explicit ZeroNode(unsigned long id) : SmallConstNode(0, id) {}
    bool isZero() const override { return true; }
};

class QX_API UnitNode : public SmallConstNode
{
public:
    explicit UnitNode(unsigned long id) : SmallConstNode(1, id) {}
    bool isUnit() const override { return true; }
};

class QX_API NUnitNode : public SmallConstNode
{
public:
    explicit NUnitNode(unsigned long id) : SmallConstNode(-1, id) {}
    bool isNUnit() const override { return true; }
};

/// A string argument of a function call. It has no value: every operation but the predicates and printing raises
/// "Strings_are_only_allowed_in_function_arguments".
class QX_API StringNode : public EvalNode
{
public:
    StringNode(const std::string& text, unsigned long id);
    ~StringNode() override;

    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned) const override;
    bool isString() const override { return true; }
    EvalNodePtr diff(const std::string&, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    std::string getVarName() const override { return text_; }
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

private:
    const std::string text_;
};

/// A function object applied to argument nodes.
class QX_API OpNode : public EvalNode
{
public:
    OpNode(const FunObjPtr& fun, EvalNodes args, unsigned long id);
    ~OpNode() override;

    /// Evaluates the arguments in order and applies the function, in place where a result is held by nobody else.
    /// The first evaluation compiles the graph below into programs over arrays and calls, which this and later ones run.
    /// Graphs of any size and depth, in time linear in the distinct operations: each is computed once, functions and
    /// operators of a host too, however often it is referred to.
    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

    const FunObjPtr& getFun() const { return fun_; }
    const EvalNodes& getArgs() const { return args_; }
    /// The function applied to the arguments' values, which may be overwritten: without EvalValues and EvalGatherBVars
    /// only on constants, otherwise a NaN value.
    ValRepPtr apply(ValRepPtr* values, unsigned flags) const;

private:
    FunObjPtr fun_;
    EvalNodes args_;
    const bool allConst_;
    // How the graph below is evaluated; follows from the fields above and is found out at the first evaluation.
    mutable std::atomic<const qxeval::StagedProgram*> program_{nullptr};
};

/// The indirection through which a shared operation is reached. Forwards everything; once it is marked as shared it
/// memoises diff, depends and jacDepends in its shadow, since that work would otherwise be repeated for every use.
class QX_API ProxyNode : public EvalNode
{
public:
    ProxyNode(const EvalNodePtr& target, unsigned long id);
    ~ProxyNode() override;

    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    bool isZero() const override { return target_->isZero(); }
    bool isUnit() const override { return target_->isUnit(); }
    bool isNUnit() const override { return target_->isNUnit(); }
    bool isScalar() const override { return target_->isScalar(); }
    ValRepPtr getScalar() const override { return target_->getScalar(); }
    bool isRealScalar(double& value) const override { return target_->isRealScalar(value); }
    bool isString() const override { return target_->isString(); }
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    std::string getVarName() const override { return target_->getVarName(); }
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

    const EvalNodePtr& getTarget() const { return target_; }
    bool isShared() const { return !unique_.load(std::memory_order_relaxed); }
    /// A second use was found. The mark only ever goes one way.
    void markAsShared() const;

private:
    EvalNodePtr target_;
    mutable std::atomic<bool> unique_{true};
};

/// A named value. The evaluator gives its definition or fills its value; a ValRepCache keeps it for one evaluation.
///
/// A NaN is kept too: it is computed again in another evaluation, with other flags or at another version, never at a
/// second use in the same evaluation. One that was found while the nesting limit or a loop stood may be the fault of the
/// way that led to it, and is computed again as soon as no variable is being evaluated, unless it was needed to compute
/// itself. So a definition that fails is as much work as one that succeeds, and a circle 10000 levels, whatever leads to it.
class QX_API VarNode : public EvalNode
{
public:
    VarNode(const std::string& name, unsigned long id);
    ~VarNode() override;

    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    std::string getVarName() const override { return name_; }
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

private:
    bool compute(bool found, const ValRepPtr& rep, const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const;
    void reportFailure(const ValRepPtr& rep, const VarEvaluatorPtr&, unsigned flags) const;

    const std::string name_;
};

/// node.ostreamOperator(out), so that nodes print like other values.
QX_API std::ostream& operator<<(std::ostream& out, const EvalNode& node);
