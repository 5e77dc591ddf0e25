// SPDX-License-Identifier: LicenseRef-qxkernel
// Nodes as definitions of the expression compiler.

#include "derivativenodes.hpp"
#include "evalfun.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "exprcomp.hpp"
#include "graphwalk_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "stackroom_detail.hpp"
#include "varevaluator.hpp"

#include <limits>

namespace {

[[noreturn]] void refuse(const std::string& what)
{
    QX_RAISE("evalnodes", "Cannot create definitions from " + what);
}

/// The definition of a node, made once for each compiler.
template <class Make>
int definedOnce(const EvalNode& node, const ExprComp& comp, const VarEvaluatorPtr& evaluator, Make&& make)
{
    int id;
    if (!evaluator->getShadowHandler()->findDefinition(node.getId(), comp.getSerial(), id)) {
        id = make();
        evaluator->getShadowHandler()->setDefinition(node.getId(), comp.getSerial(), id);
    }
    return id;
}

int addConstant(double value, ExprComp& comp, int& nextId)
{
    const int id = nextId++;
    comp.addDef(id, value);
    return id;
}

/// What stands for the id of a name that could not be defined.
constexpr int kUndefined = std::numeric_limits<int>::min();

/// Gives a name an id for the length of its definition, for names that need themselves, and takes it back unless the
/// definition was completed: without one it would pass for an input.
class NewName
{
public:
    NewName(DefIds& names, const std::string& name, int id) : names_(names), name_(name)
    {
        names_.insert(name, kUndefined);
        set(id);
    }
    ~NewName()
    {
        if (!complete_)
            set(kUndefined);
    }
    NewName(const NewName&) = delete;
    NewName& operator=(const NewName&) = delete;
    void complete() { complete_ = true; }

private:
    void set(int id) { names_.at(names_.lookup(name_).slot) = id; }

    DefIds& names_;
    const std::string& name_;
    bool complete_ = false;
};

/// A name: known, or new and tied to its expression if it has one.
template <class Expression>
int defineName(const std::string& name, ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator,
               Expression&& expression)
{
    if (const QxHashLookup hit = names.lookup(name); hit && names.at(hit.slot) != kUndefined)
        return names.at(hit.slot);
    qxeval::requireStack();
    const int id = nextId++;
    NewName entry(names, name, id);
    comp.setName(id, name);
    if (const EvalNodePtr root = expression())
        comp.addDef(id, ExprComp::Identity, root->createDefs(comp, names, nextId, evaluator));
    entry.complete();
    return id;
}

/// The number of operations in the text of a graph, where shared ones repeat.
double printedSize(const EvalNode& root)
{
    struct Pass
    {
        using Result = double;
        double leaf(const EvalNode&) { return 1; }
        bool known(const ProxyNode&, double&) { return false; }
        void done(const ProxyNode&, double) {}
        double combine(const OpNode&, const std::vector<double>& args)
        {
            double sum = 1;
            for (const double size : args)
                sum += size;
            return sum;
        }
    };
    Pass pass;
    return qxeval::walkGraph(root, pass);
}

} // namespace

int EvalNode::createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const
{
    refuse("EvalNode");
}

int ConstNode::createDefs(ExprComp& comp, DefIds&, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    double value = real_;
    if (qxIsNaN(value) && value_->isComplex() && !value_->isNaN())
        QX_RAISE("evalnodes", "Definition set may not contain complex variables.");
    if (qxIsNaN(value) && !value_->isScalar())
        refuse("ConstNode");
    return definedOnce(*this, comp, evaluator, [&] { return addConstant(value, comp, nextId); });
}

int SmallConstNode::createDefs(ExprComp& comp, DefIds&, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    return definedOnce(*this, comp, evaluator, [&] { return addConstant(number_, comp, nextId); });
}

int StringNode::createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const
{
    qxbase::Exception e("evalnodes", __LINE__, "Strings_are_only_allowed_in_function_arguments");
    e.add("evalnodes", __LINE__, "Cannot create definitions from StringNode");
    throw e;
}

int OpNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    int known;
    if (evaluator->getShadowHandler()->findDefinition(getId(), comp.getSerial(), known))
        return known;
    // Arguments before the operation, each once: a function object finds its arguments defined, whatever the depth.
    struct Pass
    {
        using Result = int;
        ExprComp& comp;
        DefIds& names;
        int& nextId;
        const VarEvaluatorPtr& evaluator;

        int leaf(const EvalNode&) { return 0; } // defined when an operation asks for it
        bool known(const ProxyNode& proxy, int& id)
        {
            const unsigned long operation = qxeval::asOperation(&proxy)->getId();
            return evaluator->getShadowHandler()->findDefinition(operation, comp.getSerial(), id);
        }
        void done(const ProxyNode&, int) {}
        int combine(const OpNode& op, const std::vector<int>&)
        {
            return definedOnce(op, comp, evaluator,
                               [&] { return op.getFun()->createDefs(op.getArgs(), comp, names, nextId, evaluator); });
        }
    };
    Pass pass{comp, names, nextId, evaluator};
    return qxeval::walkGraph(*this, pass);
}

int ProxyNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    return target_->createDefs(comp, names, nextId, evaluator);
}

int VarNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    return defineName(name_, comp, names, nextId, evaluator, [&] { return evaluator->expand(evaluator, name_); });
}

int GenOpNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    const bool inEveryHost = name_ == "real" || name_ == "imag" || name_ == "conj" || name_ == "abs" || name_ == "if";
    const int nArgs = static_cast<int>(args_.size());
    const int kind = inEveryHost ? ExprComp::kindOf(name_, nArgs) : 0;
    if (kind == 0)
        refuse("GenOpNode::" + name_);
    qxeval::requireStack();
    return definedOnce(*this, comp, evaluator, [&] {
        std::vector<int> args;
        for (const EvalNodePtr& arg : args_)
            args.push_back(arg->createDefs(comp, names, nextId, evaluator));
        const int id = nextId++;
        comp.addDef(id, kind, args);
        return id;
    });
}

int VarDiffNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    return defineName(text_, comp, names, nextId, evaluator, [&] { return resolve(evaluator); });
}

int DiffNode::createDefs(ExprComp& comp, DefIds& names, int& nextId, const VarEvaluatorPtr& evaluator) const
{
    if (!expr_->getVarName().empty()) // the derivative of a variable has this very name
        return resolve(evaluator)->createDefs(comp, names, nextId, evaluator);
    constexpr double longestText = 1000; // in operations; a number stands for a longer expression
    const std::string name = printedSize(*expr_) <= longestText
                                 ? qxeval::nodeText(*this)
                                 : "d(#" + qxutil::toString(getId()) + ',' + var_->getVarName() + ')';
    return defineName(name, comp, names, nextId, evaluator, [&] { return resolve(evaluator); });
}

int DependencyTestNode::createDefs(ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const
{
    refuse(form_.className);
}
