// SPDX-License-Identifier: LicenseRef-qxkernel
#include "values.hpp"

#include "arrayalloc.hpp"
#include "evalflags.hpp"
#include "evalfun.hpp"
#include "evalrep.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>

namespace examples {

namespace {

/// An expression in which a step cannot be done with real numbers alone.
struct NeedsTrees
{
};

/// Expressions as one list of steps: each reads numbers that were computed before and writes one of its own. The variables
/// stand first. What several expressions have in common is computed once.
class Tape : public Values
{
public:
    Tape(const Graph& graph, const std::vector<EvalNodePtr>& expressions) : graph_(graph)
    {
        const std::size_t n = graph.variables().size();
        const std::vector<EvalNodePtr> order = graph.nodesOf(expressions);
        numbers_.assign(n + order.size(), 0.0); // never grows: steps hold addresses
        std::unordered_map<const EvalNode*, unsigned> places;
        places.reserve(order.size());
        steps_.reserve(order.size());
        unsigned next = static_cast<unsigned>(n);
        for (const EvalNodePtr& node : order) {
            if (const int variable = graph.variableOf(*node); variable >= 0) {
                places[node.get()] = static_cast<unsigned>(variable);
                continue;
            }
            places[node.get()] = next;
            const auto* operation = dynamic_cast<const OpNode*>(node.get());
            if (operation == nullptr)
                numbers_[next] = numberOf(*node);
            else
                addStep(*operation, places, next);
            ++next;
        }
        for (const EvalNodePtr& expression : expressions)
            outputs_.push_back(places[graph.seen(expression).get()]);
        kept_ = order; // the functions that the calls use
    }

    bool at(const double* x, double* out) override
    {
        double* const r = numbers_.data();
        std::copy_n(x, graph_.variables().size(), r);
        bool defined = true;
        for (const Step& s : steps_)
            switch (s.kind) {
            case Kind::Plus: r[s.out] = r[s.a] + r[s.b]; break;
            case Kind::Minus: r[s.out] = r[s.a] - r[s.b]; break;
            case Kind::Times: r[s.out] = r[s.a] * r[s.b]; break;
            case Kind::Divide:
                defined = defined && r[s.b] != 0.0;
                r[s.out] = r[s.a] / r[s.b];
                break;
            case Kind::Negate: r[s.out] = -r[s.a]; break;
            case Kind::Square: r[s.out] = r[s.a] * r[s.a]; break;
            case Kind::Call: defined = call(calls_[s.b], s, r) && defined; break;
            }
        for (std::size_t k = 0; k < outputs_.size(); ++k) {
            out[k] = r[outputs_[k]];
            defined = defined && std::isfinite(out[k]);
        }
        return defined;
    }

private:
    enum class Kind : unsigned char { Plus, Minus, Times, Divide, Negate, Square, Call };
    struct Step
    {
        Kind kind;
        unsigned out, a, b; ///< places of result and operands; of a call: b is its number
    };
    /// A function object and the places that it works on; the first argument is copied to the result, which it overwrites.
    struct Call
    {
        const FunObj* function;
        std::vector<FunObj::D> arguments;
    };

    /// A pointer to a number of this tape, as function objects take it.
    FunObj::D lent(unsigned place) { return {FunObj::D(), &numbers_[place]}; }

    double numberOf(const EvalNode& node) const
    {
        double value = 0.0;
        if (node.isRealScalar(value))
            return value;
        throw NeedsTrees{};
    }

    void addStep(const OpNode& operation, const std::unordered_map<const EvalNode*, unsigned>& places, unsigned out)
    {
        const FunObj* f = operation.getFun().get();
        const EvalNodes& arguments = operation.getArgs();
        const auto place = [&](std::size_t k) { return places.at(graph_.seen(arguments[k]).get()); };
        const auto is = [&](FunId id, int arity) { return f == graph_.nodeMaker()->idToFun(id, arity).get(); };
        const unsigned a = arguments.empty() ? 0 : place(0);
        if (is(PLUS, 2))
            steps_.push_back({Kind::Plus, out, a, place(1)});
        else if (is(MINUS, 2))
            steps_.push_back({Kind::Minus, out, a, place(1)});
        else if (is(TIMES, 2))
            steps_.push_back({Kind::Times, out, a, place(1)});
        else if (is(DIV, 2))
            steps_.push_back({Kind::Divide, out, a, place(1)});
        else if (is(UMINUS, 1))
            steps_.push_back({Kind::Negate, out, a, 0});
        else if (is(POW2, 1))
            steps_.push_back({Kind::Square, out, a, 0});
        else if (arguments.empty())
            throw NeedsTrees{};
        else {
            Call entry{f, {lent(out)}};
            for (std::size_t k = 1; k < arguments.size(); ++k)
                entry.arguments.push_back(lent(place(k)));
            steps_.push_back({Kind::Call, out, a, static_cast<unsigned>(calls_.size())});
            calls_.push_back(std::move(entry));
        }
    }

    static bool call(const Call& call, const Step& step, double* r)
    {
        r[step.out] = r[step.a];
        const auto& args = call.arguments;
        const unsigned bits = call.function->isMulti() ? (*call.function)(args, 1)
                              : args.size() == 1       ? (*call.function)(args[0])
                                                       : (*call.function)(args[0], args[1], 1);
        return (bits & kFunErrorMask) == 0;
    }

    const Graph& graph_;
    std::vector<double> numbers_;
    std::vector<Step> steps_;
    std::vector<Call> calls_;
    std::vector<unsigned> outputs_;
    std::vector<EvalNodePtr> kept_;
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
        return std::make_unique<Tape>(graph, expressions);
    } catch (const NeedsTrees&) {
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
