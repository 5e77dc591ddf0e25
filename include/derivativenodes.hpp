// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "evalnodes.hpp"
#include "evalshadow.hpp"

#include <string>

/// An operator of the host applied to argument nodes: everything about it is asked of the evaluator, by name. Derivative
/// and dependence are asked once a version and remembered, whatever the number of arguments.
class QX_API GenOpNode : public EvalNode
{
public:
    GenOpNode(const std::string& name, EvalNodes args, unsigned long id);
    ~GenOpNode() override;

    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    /// name(a,b,...)
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

    const std::string& getName() const { return name_; }
    const EvalNodes& getArgs() const { return args_; }
    /// What the evaluator makes of the arguments' values; without EvalValues and EvalGatherBVars a NaN value.
    ValRepPtr apply(const VarEvaluatorPtr&, const ValRepCachePtr&, const std::vector<ValRepPtr>& values, unsigned flags) const;

private:
    boost::shared_ptr<GenOpNodeShadow> currentShadow(const VarEvaluatorPtr&) const;

    const std::string name_;
    EvalNodes args_;
    mutable std::atomic<const qxeval::StagedProgram*> program_{nullptr}; // of the arguments and this
};

/// The derivative of a host variable, resolved by VarEvaluator::diff at its first use and again for each version. Its value
/// is computed once in an evaluation: the ValRepCache keeps it under the node's text.
class QX_API VarDiffNode : public EvalNode
{
public:
    /// base: the node of the variable `name`.
    VarDiffNode(const EvalNodePtr& base, const std::string& name, const std::string& var, unsigned long id);
    ~VarDiffNode() override;

    /// A NaN result gets the line "diffvareval" with "var"; a complex one under EvalNoComplex becomes "varcmplx".
    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    /// Fails: "Derivative_too_large" for a second or higher derivative of more than 2^17 distinct operations.
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    /// d(name,var)
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

private:
    EvalNodePtr resolve(const VarEvaluatorPtr&) const;
    void compute(const ValRepPtr& rep, const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const;

    EvalNodePtr base_;
    const std::string name_;
    const std::string var_;
    const std::string text_;
    const std::string key_;
};

/// d(expression,variable) or pd(expression,variable), met by the parser: differentiates itself at its first use. Its value
/// is computed once in an evaluation: the ValRepCache keeps it under the node's id.
///
/// A second argument that is no variable raises "Can_only_diff_wrt_variables" at that use.
class QX_API DiffNode : public EvalNode
{
public:
    /// mode: 0 for d (total), 1 for pd (partial).
    DiffNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned mode, unsigned long id);
    ~DiffNode() override;

    /// A complex value under EvalNoComplex becomes a NaN with the line "varcmplx".
    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    /// Fails: "Derivative_too_large" for a second or higher derivative of more than 2^17 distinct operations.
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    /// d(expression,variable)
    void ostreamOperator(std::ostream&) const override;
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

    unsigned getMode() const { return mode_; }

private:
    EvalNodePtr resolve(const VarEvaluatorPtr&) const;

    EvalNodePtr expr_;
    EvalNodePtr var_;
    const unsigned mode_;
    const std::string key_;
};

/// Common part of the four tests: 1 or 0 as values, constant under differentiation.
///
/// A variable argument that is no variable raises "Can_only_test_dependency_wrt_variables" at the first use.
class QX_API DependencyTestNode : public EvalNode
{
public:
    ~DependencyTestNode() override;

    /// 1 if the expression depends, else 0. A zero expression without EvalValues and EvalGatherBVars gives a NaN value
    /// without a record: only the form of the result matters then.
    ValRepPtr eval(const VarEvaluatorPtr&, const ValRepCachePtr&, unsigned flags) const override;
    EvalNodePtr diff(const std::string& var, const VarEvaluatorPtr&) const override;
    EvalNodePtr simplify(const VarEvaluatorPtr&) const override;
    void gatherBVars(const VarEvaluatorPtr&, NodeIdSet&, NameSet&) const override;
    /// name(expression) or name(expression,variable)
    void ostreamOperator(std::ostream&) const override;
    /// Raises "Cannot create definitions from " and the class.
    int createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const override;

protected:
    /// What tells the four classes apart.
    struct Form
    {
        const char* className;
        const char* printedName;
        bool jacobian; ///< asks for jacDepends instead of depends
    };

    /// var is null for the forms that ask for any basic variable.
    DependencyTestNode(const Form& form, const EvalNodePtr& expr, const EvalNodePtr& var, unsigned long id);

    const Form form_;
    EvalNodePtr expr_;
    EvalNodePtr var_;
    std::vector<std::string> vars_; // the name of var_
};

/// depends(expression,variable)
class QX_API DepNode : public DependencyTestNode
{
public:
    DepNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned long id);
};

/// depends(expression): on anything that the host varies.
class QX_API UDepNode : public DependencyTestNode
{
public:
    UDepNode(const EvalNodePtr& expr, unsigned long id);
};

/// jacdepends(expression,variable): does the derivative depend on the variable?
class QX_API JacDepNode : public DependencyTestNode
{
public:
    JacDepNode(const EvalNodePtr& expr, const EvalNodePtr& var, unsigned long id);
};

/// isnonlinear(expression), written jacdepends(expression) in text that is read.
class QX_API JacUDepNode : public DependencyTestNode
{
public:
    JacUDepNode(const EvalNodePtr& expr, unsigned long id);
};
