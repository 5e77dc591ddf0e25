// SPDX-License-Identifier: LicenseRef-qxkernel
#include "values.hpp"

#include "arrayalloc.hpp"
#include "evalflags.hpp"
#include "evalrep.hpp"
#include "evaltree.hpp"
#include "exprcomp.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>

namespace examples {

namespace {

/// Expressions as one list of definitions, evaluated natively. What several expressions have in common is computed once.
/// Raises qxbase::Exception for an expression that needs more than real arithmetic, or functions that the compiler lacks.
class Compiled : public Values
{
public:
    Compiled(const Graph& graph, const std::vector<EvalNodePtr>& expressions)
    {
        DefIds names;
        int nextId = 0;
        for (const std::string& variable : graph.variables()) {
            names.insert(variable, nextId);
            compiler_.addInput(nextId++);
        }
        for (const EvalNodePtr& expression : expressions)
            compiler_.addOutput(expression->createDefs(compiler_, names, nextId, graph.evaluator()));
        compiler_.compile();
        in_.resize(graph.variables().size());
    }

    bool at(const double* x, double* out) override
    try {
        std::copy_n(x, in_.size(), in_.begin());
        compiler_.eval(in_, out_);
        std::copy(out_.begin(), out_.end(), out);
        return std::all_of(out_.begin(), out_.end(), [](double v) { return std::isfinite(v); });
    } catch (const qxbase::Exception&) {
        return false;
    }

private:
    ExprComp compiler_;
    std::vector<double> in_, out_;
};

/// Each expression as a tree: slower, and for all that formulas can say.
class Trees : public Values
{
public:
    Trees(const Graph& graph, const std::vector<EvalNodePtr>& expressions)
        : graph_(graph)
    {
        for (const EvalNodePtr& expression : expressions)
            trees_.push_back(boost::make_shared<EvalTree>(expression));
    }

    bool at(const double* x, double* out) override
    try {
        graph_.host().setPoint(x);
        cache_->reset();
        for (std::size_t k = 0; k < trees_.size(); ++k) {
            const ValRepPtr value = trees_[k]->eval(graph_.evaluator(), cache_, EvalValues);
            value->throwError();
            std::complex<double> number;
            value->copyToArray(&number, 1, 1);
            out[k] = number.real();
            if (number.imag() != 0.0 || !std::isfinite(number.real()))
                return false;
        }
        return true;
    } catch (const qxbase::Exception&) {
        return false;
    }

private:
    const Graph& graph_;
    ValRepCachePtr cache_ = boost::make_shared<ValRepCache>(boost::make_shared<ArrayAllocImpl>(1, 1ul << 20));
    std::vector<EvalTreePtr> trees_;
};

} // namespace

std::unique_ptr<Values> makeValues(const Graph& graph, const std::vector<EvalNodePtr>& expressions)
{
    try {
        return std::make_unique<Compiled>(graph, expressions);
    } catch (const qxbase::Exception&) {
        return std::make_unique<Trees>(graph, expressions);
    }
}

std::vector<double> constantValues(const Graph& graph, const std::vector<EvalNodePtr>& expressions)
{
    std::vector<double> values(expressions.size());
    const std::vector<double> anywhere(graph.variables().size(), 0.0);
    if (!makeValues(graph, expressions)->at(anywhere.data(), values.data()))
        QX_RAISE("optimise", "Unexpected_NaN");
    return values;
}

} // namespace examples
