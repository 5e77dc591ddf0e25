// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "arrayalloc.hpp"
#include "eval/funlookup_detail.hpp"
#include "evaltree.hpp"
#include "formulas/points_detail.hpp"
#include "fwd.hpp"
#include "valrepcache.hpp"
#include "varevaluator.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace qx {

using qxeval::FunTable;

/// A half-open range of points.
struct Range
{
    std::size_t first;
    std::size_t count;
};

/// What names mean, for the hosts of all threads. Immutable once compiled.
struct Names
{
    std::vector<std::string> variables;
    std::unordered_map<std::string, std::size_t> indexOfVariable;
    std::unordered_map<std::string, EvalTreePtr> definitions; ///< "pi" and "i" among them unless they mean something else
    boost::shared_ptr<FunTable> functions;

    /// For the search of a near one: variables and definitions, or functions; sorted.
    std::vector<std::string> valueNames() const;
    std::vector<std::string> functionNames() const;
};

/// For each variable its values; null where there are none.
using Columns = std::vector<const PointColumn*>;

/// The host of the evaluation engine for one thread.
class Host : public VarEvaluator
{
public:
    Host(const Names& names, const NodeMakerPtr& maker);

    /// The points of the next evaluation. Both are lent; the caller resets its cache.
    void setPoints(const Columns& columns, Range range)
    {
        columns_ = &columns;
        range_ = range;
    }

    using VarEvaluator::eval;
    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned flags, const ValRepPtr& rep,
              const ValRepCachePtr&) override;
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override;
    FunObjPtr getFun(const std::string& name, int nArgs) override;
    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override;

private:
    const Names& names_;
    const Columns* columns_ = nullptr;
    Range range_{0, 0};
};

/// A host that knows no definitions: what it gathers are the names that stand in a text.
class PlainHost : public Host
{
public:
    using Host::Host;
    EvalNodePtr expand(const VarEvaluatorPtr&, const std::string&) override { return {}; }
};

/// All that an evaluation by one thread needs.
class Worker
{
public:
    Worker(const Names& names, const NodeMakerPtr& maker, std::size_t block);

    void setPoints(const Columns& columns, Range range);
    /// The value of a tree at these points.
    ValRepPtr evaluate(EvalTree& tree, unsigned flags, const qxutil::RunInfo* run)
    {
        return tree.eval(asEvaluator, cache, flags, run);
    }
    /// Lets go of values; arrays and shadows are kept for the next evaluation.
    void rest();

    /// Arrays are kept where they come back on the thread that made them.
    bool fits(std::size_t block) const { return block_ == block && thread_ == std::this_thread::get_id(); }

    const boost::shared_ptr<Host> host;
    const VarEvaluatorPtr asEvaluator;
    const ValRepCachePtr cache;
    std::vector<ValRepPtr> values; ///< of formulas evaluated together

private:
    std::size_t block_;
    std::thread::id thread_;
};

} // namespace qx
