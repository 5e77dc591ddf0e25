// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "errinfo.hpp"
#include "evalflags.hpp"
#include "evalfun.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <complex>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// A host as tests need it: variables with values at points, definitions by text, functions, operators, counters.
namespace qxtest {

using cplx = std::complex<double>;

class Host : public VarEvaluator
{
public:
    explicit Host(const NodeMakerPtr& maker = boost::make_shared<NodeMaker>())
        : VarEvaluator(maker, boost::make_shared<ShadowHandler>())
    {
        loadFunctions();
    }
    /// Shares everything with a parent.
    explicit Host(const Host& parent)
        : VarEvaluator(parent.getVersion(), parent.getRecCount(), parent.getDiffFlagManager(), parent.getNodeMaker(),
                       parent.getShadowHandler())
    {
        loadFunctions();
    }

    std::map<std::string, std::vector<double>> reals;         ///< one value: a scalar
    std::map<std::string, std::vector<cplx>> complexes;
    std::map<std::string, std::string> definitions;
    std::map<std::string, FunObjPtr> functions;
    std::map<std::string, int> operators;                     ///< name to argument count
    std::map<std::string, int> evaluations;                   ///< how often a basic variable was asked for
    std::function<FunObjPtr(const std::string&, int, const std::vector<std::string>&, const std::vector<int>&)> stringFun;
    bool fails = false; ///< basic variables become NaN
    long entered = 0;   ///< how often a variable or a derivative was entered: the work of an evaluation in steps

    using VarEvaluator::diff;
    using VarEvaluator::depends;
    using VarEvaluator::jacDepends;
    using VarEvaluator::gatherBVars;

    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
              const ValRepCachePtr&) override
    {
        ++evaluations[name];
        if (fails) {
            rep->setNaN();
        } else if (const auto r = reals.find(name); r != reals.end()) {
            if (r->second.size() == 1) {
                boost::shared_ptr<double> out;
                rep->reset(true, false, 0);
                rep->addDScalar(out);
                *out = r->second[0];
            } else {
                DArrayPtr out;
                rep->reset(false, false, r->second.size());
                rep->addDArray(out);
                std::copy(r->second.begin(), r->second.end(), rep->getDoubleIterator(0));
            }
        } else if (const auto c = complexes.find(name); c != complexes.end()) {
            if (c->second.size() == 1) {
                boost::shared_ptr<cplx> out;
                rep->reset(true, true, 0);
                rep->addCScalar(out);
                *out = c->second[0];
            } else {
                CArrayPtr out;
                rep->reset(false, true, c->second.size());
                rep->addCArray(out);
                std::copy(c->second.begin(), c->second.end(), rep->getComplexIterator(0));
            }
        } else {
            QX_RAISE("host", "Unknown_variable_name", "Name", name);
        }
    }

    /// The sum of its arguments.
    ValRepPtr eval(const VarEvaluatorPtr& evaluator, const std::string& op, const std::vector<ValRepPtr>& args,
                   unsigned flags, const ValRepCachePtr& cache) override
    {
        if (!operators.count(op))
            return VarEvaluator::eval(evaluator, op, args, flags, cache);
        ++evaluations[op];
        ValRepPtr sum = ValRep::make(0.0);
        for (ValRepPtr arg : args) {
            ValRepPtr result;
            ValRep::plus(sum, arg, result, false);
            sum = result;
        }
        return sum;
    }

    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override
    {
        const auto found = definitions.find(name);
        if (found == definitions.end())
            return EvalNodePtr();
        auto& tree = parsed_[found->second];
        if (!tree)
            tree = boost::make_shared<EvalTree>(found->second, false);
        return tree->getRoot(evaluator);
    }

    FunObjPtr getFun(const std::string& name, int nArgs) override
    {
        const auto found = functions.find(name);
        if (found == functions.end())
            QX_RAISE("host", "Unknown_function_name", "Name", name);
        if (found->second->nArgs() != nArgs)
            QX_RAISE("host", "Wrong_number_of_function_arguments", "Name", name);
        return found->second;
    }

    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override
    {
        if (!stringFun)
            QX_RAISE("host", "Unknown_function_name", "Name", name);
        return stringFun(name, nArgs, strings, positions);
    }

    bool isOp(const std::string& name, int nArgs) override
    {
        const auto found = operators.find(name);
        return found != operators.end() && found->second == nArgs;
    }

    void initRecLimCheck(RecLimCheck& check, const std::string& name) override
    {
        ++entered;
        VarEvaluator::initRecLimCheck(check, name);
    }

private:
    void loadFunctions()
    {
        std::vector<FunObjPtr> funs;
        getStdFuns(funs);
        for (const FunObjPtr& f : funs)
            functions[f->getName()] = f;
    }

    std::map<std::string, EvalTreePtr> parsed_;
};

using HostPtr = boost::shared_ptr<Host>;

inline HostPtr makeHost(const std::map<std::string, std::vector<double>>& reals = {})
{
    const auto host = boost::make_shared<Host>();
    host->reals = reals;
    return host;
}

inline ValRepCachePtr makeCache(const ArrayAllocatorPtr& allocator = ArrayAllocatorPtr())
{
    return boost::make_shared<ValRepCache>(allocator);
}

inline EvalTreePtr treeOf(const std::string& text)
{
    return boost::make_shared<EvalTree>(text, false);
}

/// The value of a text on a fresh cache.
inline ValRepPtr evalText(const std::string& text, const HostPtr& host, unsigned flags = EvalValues)
{
    return treeOf(text)->eval(host, makeCache(), flags);
}

inline double realValue(const std::string& text, const HostPtr& host, unsigned flags = EvalValues)
{
    return evalText(text, host, flags)->getDouble();
}

/// The identifier that work() raises; empty if it raises nothing.
template <class Work>
std::string raisedId(Work&& work)
{
    try {
        work();
    } catch (const qxbase::Exception& e) {
        return e.getId();
    }
    return std::string();
}

/// The value of an argument of the exception that work() raises.
template <class Work>
std::string raisedArgument(Work&& work, const std::string& key)
{
    try {
        work();
    } catch (const qxbase::Exception& e) {
        for (std::size_t i = 0; i < e.size(); ++i)
            for (const auto& [k, v] : e.getArgs(i))
                if (k == key)
                    return v;
    }
    return std::string();
}

/// The text of a node.
inline std::string textOf(const EvalNodePtr& node)
{
    return EvalTree(node).getExpr();
}

/// Number of distinct nodes of the graph below root, itself included: operations, variables and constants. The proxy that
/// shares an operation is no node of its own.
std::size_t countNodes(const EvalNodePtr& root);

/// Number of objects, kept or thrown away again, that work() makes through the factory: nodes and proxies.
template <class Work>
std::size_t countNodesMade(NodeMaker& maker, Work&& work)
{
    const auto newestId = [&maker] { return maker.makeProxyNode(maker.makeUnitNode())->getId(); };
    const unsigned long before = newestId();
    work();
    return newestId() - before - 1;
}

} // namespace qxtest
