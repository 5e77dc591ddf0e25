// SPDX-License-Identifier: LicenseRef-qxkernel
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

#include <algorithm>
#include <boost/make_shared.hpp>
#include <complex>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

/// Points in columns, evaluated block by block: what a host does at run time and no more.
namespace qxbench {

/// Its columns are values of one block each, laid out once. An evaluation finds them through the ColumnCache where they
/// are: nothing is copied.
class ColumnHost : public VarEvaluator
{
public:
    explicit ColumnHost(std::size_t block, const ArrayAllocatorPtr& allocator = ArrayAllocatorPtr())
        : VarEvaluator(boost::make_shared<NodeMaker>(), boost::make_shared<ShadowHandler>()), block_(block),
          allocator_(allocator)
    {
        std::vector<FunObjPtr> funs;
        getStdFuns(funs);
        for (const FunObjPtr& f : funs)
            functions_[f->getName()] = f;
    }

    template <class T>
    void addColumn(const std::string& name, const T* data, std::size_t n)
    {
        Column column{name, {}};
        for (std::size_t from = 0; from < n; from += block_) {
            const std::size_t count = std::min(block_, n - from);
            const ValRepPtr value = ValRep::make(allocator_);
            boost::shared_ptr<Array<T, 1>> out;
            value->reset(false, !std::is_same_v<T, double>, count);
            if constexpr (std::is_same_v<T, double>)
                value->addDArray(out);
            else
                value->addCArray(out);
            std::copy_n(data + from, count, out->data());
            value->setEvaluated();
            column.blocks.push_back(value);
        }
        columns_.push_back(std::move(column));
    }

    /// A function of the host's own.
    void addFunction(const FunObjPtr& function) { functions_[function->getName()] = function; }

    std::size_t current = 0; ///< the block that is evaluated

    /// The value of a column in the current block; null for another name.
    const ValRepPtr* find(const std::string& name) const
    {
        for (const Column& column : columns_)
            if (column.name == name)
                return &column.blocks[current];
        return nullptr;
    }

    using VarEvaluator::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr&, const ValRepCachePtr&) override
    {
        QX_RAISE("bench", "Unknown_variable_name", "Name", name); // columns are in the cache
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
    struct Column
    {
        std::string name;
        std::vector<ValRepPtr> blocks;
    };

    const std::size_t block_;
    const ArrayAllocatorPtr allocator_;
    std::vector<Column> columns_;
    std::map<std::string, FunObjPtr> functions_;
};

/// Knows the columns of a host before they are asked for.
class ColumnCache : public ValRepCache
{
public:
    ColumnCache(const boost::shared_ptr<ColumnHost>& host, const ArrayAllocatorPtr& allocator)
        : ValRepCache(allocator), host_(host)
    {
    }
    std::pair<bool, ValRepPtr> getVar(const std::string& name, unsigned flags) override
    {
        const ValRepPtr* const column = host_->find(name);
        return column != nullptr ? std::pair(true, *column) : ValRepCache::getVar(name, flags);
    }

private:
    const boost::shared_ptr<ColumnHost> host_;
};

/// Evaluates trees over nBlocks blocks; take(tree number, block, value) reads each block's values.
template <class Take>
void overBlocks(const boost::shared_ptr<ColumnHost>& host, const ValRepCachePtr& cache,
                const std::vector<EvalTreePtr>& trees, std::size_t nBlocks, unsigned flags, Take&& take)
{
    const VarEvaluatorPtr evaluator = host;
    for (std::size_t j = 0; j < nBlocks; ++j) {
        cache->reset();
        host->current = j;
        for (std::size_t t = 0; t < trees.size(); ++t)
            take(t, j, trees[t]->eval(evaluator, cache, flags));
    }
}

} // namespace qxbench
