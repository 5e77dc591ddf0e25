#pragma once

#include "arrayalloc.hpp"
#include "evalflags.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <complex>
#include <cstring>
#include <map>
#include <string>

/// Points in columns, evaluated block by block: what a host does at run time and no more.
namespace qxbench {

class ColumnHost : public VarEvaluator
{
public:
    ColumnHost() : VarEvaluator(boost::make_shared<NodeMaker>(), boost::make_shared<ShadowHandler>())
    {
        std::vector<FunObjPtr> funs;
        getStdFuns(funs);
        for (const FunObjPtr& f : funs)
            functions_[f->getName()] = f;
    }

    std::map<std::string, const double*> reals;
    std::map<std::string, const std::complex<double>*> complexes;
    std::size_t from = 0;   ///< first point of the block
    std::size_t count = 0;  ///< points of the block

    using VarEvaluator::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr& rep,
              const ValRepCachePtr&) override
    {
        if (const auto r = reals.find(name); r != reals.end()) {
            DArrayPtr out;
            rep->reset(false, false, count);
            rep->addDArray(out);
            std::memcpy(rep->getDoubleIterator(0), r->second + from, count * sizeof(double));
        } else if (const auto c = complexes.find(name); c != complexes.end()) {
            CArrayPtr out;
            rep->reset(false, true, count);
            rep->addCArray(out);
            std::memcpy(rep->getComplexIterator(0), c->second + from, count * sizeof(std::complex<double>));
        } else {
            QX_RAISE("bench", "Unknown_variable_name", "Name", name);
        }
    }
    FunObjPtr getFun(const std::string& name, int) override
    {
        const auto f = functions_.find(name);
        if (f == functions_.end())
            QX_RAISE("bench", "Unknown_function_name", "Name", name);
        return f->second;
    }
    FunObjPtr getStringFun(const std::string& name, int, const std::vector<std::string>&,
                           const std::vector<int>&) override
    {
        QX_RAISE("bench", "Unknown_function_name", "Name", name);
    }

private:
    std::map<std::string, FunObjPtr> functions_;
};

/// Evaluates trees over n points in blocks; take(tree number, first point, value) reads each block's values.
template <class Take>
void overPoints(const boost::shared_ptr<ColumnHost>& host, const ValRepCachePtr& cache,
                const std::vector<EvalTreePtr>& trees, std::size_t n, std::size_t block, unsigned flags, Take&& take)
{
    for (std::size_t from = 0; from < n; from += block) {
        cache->reset();
        host->from = from;
        host->count = std::min(block, n - from);
        for (std::size_t t = 0; t < trees.size(); ++t)
            take(t, from, trees[t]->eval(host, cache, flags));
    }
}

} // namespace qxbench
