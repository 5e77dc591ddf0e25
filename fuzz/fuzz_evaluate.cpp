// SPDX-License-Identifier: LicenseRef-qxkernel
// Text to value: any bytes are read, turned into nodes, differentiated, simplified, printed and evaluated over three
// points. Failures may leave as exceptions and as NaN values, nothing else.

#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "funfactory.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace {

/// Every name but f is a basic variable at three points; f is defined through itself, g through x; op is an operator.
class FuzzHost : public VarEvaluator
{
public:
    FuzzHost() : VarEvaluator(boost::make_shared<NodeMaker>(), boost::make_shared<ShadowHandler>())
    {
        std::vector<FunObjPtr> functions;
        getStdFuns(functions);
        for (const FunObjPtr& f : functions)
            functions_[f->getName()] = f;
    }

    using VarEvaluator::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
              const ValRepCachePtr&) override
    {
        DArrayPtr out;
        rep->reset(false, false, 3);
        rep->addDArray(out);
        for (int i = 0; i < 3; ++i)
            rep->getDoubleIterator(0)[i] = static_cast<double>(name.size()) - 0.5 * i;
    }
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override
    {
        const char* const text = name == "f" ? "f+1" : name == "g" ? "x^2" : nullptr;
        if (!text)
            return EvalNodePtr();
        auto& tree = definitions_[text];
        if (!tree)
            tree = boost::make_shared<EvalTree>(text, false);
        return tree->getRoot(evaluator);
    }
    FunObjPtr getFun(const std::string& name, int nArgs) override
    {
        const auto found = functions_.find(name);
        if (found == functions_.end() || found->second->nArgs() != nArgs)
            QX_RAISE("fuzz", "Unknown_function_name", "Name", name);
        return found->second;
    }
    FunObjPtr getStringFun(const std::string& name, int, const std::vector<std::string>&,
                           const std::vector<int>&) override
    {
        QX_RAISE("fuzz", "Unknown_function_name", "Name", name);
    }
    bool isOp(const std::string& name, int nArgs) override { return name == "op" && nArgs == 2; }

private:
    std::map<std::string, FunObjPtr> functions_;
    std::map<std::string, EvalTreePtr> definitions_;
};

template <class Work>
void guarded(Work&& work)
{
    try {
        work();
    } catch (const qxbase::Exception&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto host = boost::make_shared<FuzzHost>();
    const auto tree = boost::make_shared<EvalTree>(text, false);
    const auto read = [&](const EvalTreePtr& t, unsigned flags) {
        guarded([&] { (*t->eval(host, boost::make_shared<ValRepCache>(), flags)->getComplexReader())(0, 0); });
    };
    for (const unsigned flags : {4u, 4u | 8u, 4u | 0x10u, 4u | 0x100u, 0u, 1u})
        read(tree, flags);
    guarded([&] { read(tree->diff("x", host), 4); });
    guarded([&] { read(tree->simplify(host), 4); });
    guarded([&] { tree->depends({"x"}, host); });
    guarded([&] { tree->jacDepends({}, host); });
    guarded([&] { tree->linearize(host); });
    guarded([&] { EvalTree(tree->getRoot(host)).getExpr(); });
    return 0;
}
