// SPDX-License-Identifier: LicenseRef-qxkernel
#include "stagedprogram_detail.hpp"

#include "borrowedvalues_detail.hpp"
#include "cancel_detail.hpp"
#include "derivativenodes.hpp"
#include "evalnodes.hpp"
#include "evalrep.hpp"
#include "graphwalk_detail.hpp"

#include <algorithm>
#include <typeinfo>

namespace qxeval {

// Compilation --------------------------------------------------------------------------------------------------------

/// First the graph is walked with an explicit stack, each operation and call taking a number and finding its stage; then
/// results that are needed outside of a program get places, and the stages their programs.
class StagedProgram::Compiler
{
public:
    explicit Compiler(StagedProgram& all) : all_(all) {}

    void compile(const std::vector<const EvalNode*>& roots)
    {
        for (const EvalNode* const root : roots)
            walk(*root);
        all_.stages_.resize(stages_);
        markPlaces(roots);
        for (std::size_t stage = 0; stage < stages_; ++stage)
            makeStage(stage);
        for (const EvalNode* const root : roots)
            all_.roots_.push_back(sourceOf(*root));
        findLastReaders();
        all_.isOneProgram_ = isOneProgram();
    }

private:
    static constexpr std::size_t kNone = ~std::size_t(0);

    struct Info
    {
        const EvalNode* node;
        const EvalNodes* args;
        bool isCall;
        bool hasPlace; // a call, or needed by a call, a later stage or the caller
        std::size_t stage;
    };
    struct Frame
    {
        Info info;
        std::size_t next;
    };

    static const EvalNodes* argumentsOf(const EvalNode& node)
    {
        if (const OpNode* const op = asOperation(&node))
            return &op->getArgs();
        return typeid(node) == typeid(GenOpNode) ? &static_cast<const GenOpNode&>(node).getArgs() : nullptr;
    }
    static bool isCall(const EvalNode& node)
    {
        const OpNode* const op = asOperation(&node);
        return op == nullptr || !Program::hasKernel(*op);
    }

    /// The node's number; null for a leaf. For a node that was walked.
    const std::size_t* find(const EvalNode& node) const
    {
        const QxHashLookup hit = numbers_.lookup(&behindProxies(node));
        return hit ? &numbers_.at(hit.slot) : nullptr;
    }

    void walk(const EvalNode& root)
    {
        visit(root);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next < frame.info.args->size()) {
                visit(*(*frame.info.args)[frame.next++]);
                continue;
            }
            Info& info = frame.info;
            for (const EvalNodePtr& arg : *info.args)
                if (const std::size_t* const below = find(*arg))
                    info.stage = std::max(info.stage, infos_[*below].stage);
            if (info.isCall)
                ++info.stage;
            stages_ = std::max(stages_, info.stage + 1);
            numbers_.insert(info.node, infos_.size());
            infos_.push_back(info);
            frames_.pop_back();
        }
    }

    void visit(const EvalNode& reached)
    {
        const EvalNode& node = behindProxies(reached);
        const EvalNodes* const args = argumentsOf(node);
        if (args != nullptr && !find(node)) {
            const bool call = isCall(node);
            frames_.push_back({{&node, args, call, call, 0}, 0});
        }
    }

    void markPlaces(const std::vector<const EvalNode*>& roots)
    {
        calls_.resize(stages_);
        operations_.resize(stages_);
        results_.resize(stages_);
        for (const EvalNode* const root : roots)
            if (const std::size_t* const number = find(*root))
                infos_[*number].hasPlace = true;
        for (const Info& info : infos_)
            for (const EvalNodePtr& arg : *info.args)
                if (const std::size_t* const number = find(*arg)) {
                    Info& below = infos_[*number];
                    below.hasPlace = below.hasPlace || info.isCall || below.stage < info.stage;
                }
        for (std::size_t i = 0; i < infos_.size(); ++i) {
            const Info& info = infos_[i];
            (info.isCall ? calls_ : operations_)[info.stage].push_back(i);
            if (!info.isCall && info.hasPlace)
                results_[info.stage].push_back(info.node);
        }
    }

    void makeStage(std::size_t number)
    {
        Stage& stage = all_.stages_[number];
        stage.firstCall = all_.calls_.size();
        stage.calls = calls_[number].size();
        for (const std::size_t i : calls_[number]) {
            const EvalNodes& args = *infos_[i].args;
            all_.calls_.push_back({infos_[i].node, all_.sources_.size(), args.size(), 0});
            for (const EvalNodePtr& arg : args)
                all_.sources_.push_back(sourceOf(*arg));
        }
        for (std::size_t k = 0; k < stage.calls; ++k) {
            Call& call = all_.calls_[stage.firstCall + k];
            call.place = newPlace(*call.node);
        }
        if (!results_[number].empty())
            stage.program = Program::compile(results_[number], places_);
        stage.firstPlace = all_.places_;
        for (const EvalNode* const node : results_[number])
            newPlace(*node);
    }

    std::size_t newPlace(const EvalNode& node)
    {
        places_.insert(&node, all_.places_);
        return all_.places_++;
    }

    Source sourceOf(const EvalNode& reached) const
    {
        const EvalNode& node = behindProxies(reached);
        const QxHashLookup kept = places_.lookup(&node);
        return kept ? Source{nullptr, places_.at(kept.slot), false} : Source{&node, 0, false};
    }

    /// Values are handed over to the call that is the last to read them, and given up after the last program.
    void findLastReaders()
    {
        struct Reader
        {
            std::size_t source, stage;
        };
        std::vector<Reader> last(all_.places_, {kNone, kNone});
        for (std::size_t s = 0; s < stages_; ++s) {
            const Stage& stage = all_.stages_[s];
            for (std::size_t c = 0; c < stage.calls; ++c) {
                const Call& call = all_.calls_[stage.firstCall + c];
                for (std::size_t k = call.firstSource; k < call.firstSource + call.sources; ++k)
                    if (all_.sources_[k].leaf == nullptr)
                        last[all_.sources_[k].place] = {k, kNone};
            }
            for (const std::size_t i : operations_[s])
                for (const EvalNodePtr& arg : *infos_[i].args)
                    if (const QxHashLookup kept = places_.lookup(&behindProxies(*arg)))
                        last[places_.at(kept.slot)] = {kNone, s};
        }
        for (const Source& root : all_.roots_)
            if (root.leaf == nullptr)
                last[root.place] = {kNone, kNone};
        std::vector<std::vector<std::size_t>> done(stages_);
        for (std::size_t place = 0; place < last.size(); ++place) {
            if (last[place].source != kNone)
                all_.sources_[last[place].source].last = true;
            else if (last[place].stage != kNone)
                done[last[place].stage].push_back(place);
        }
        for (std::size_t s = 0; s < stages_; ++s) {
            all_.stages_[s].firstDone = all_.done_.size();
            all_.stages_[s].done = done[s].size();
            all_.done_.insert(all_.done_.end(), done[s].begin(), done[s].end());
        }
    }

    /// One program without calls whose results are the roots in their order.
    bool isOneProgram() const
    {
        if (stages_ != 1 || !all_.calls_.empty() || results_[0].empty() || all_.roots_.size() != results_[0].size())
            return false;
        for (std::size_t i = 0; i < all_.roots_.size(); ++i)
            if (all_.roots_[i].leaf != nullptr || all_.roots_[i].place != i)
                return false;
        return true;
    }

    StagedProgram& all_;
    std::vector<Frame> frames_;
    std::vector<Info> infos_; // arguments first
    QxHashMap<std::size_t, const EvalNode*> numbers_;
    std::size_t stages_ = 1;
    std::vector<std::vector<std::size_t>> calls_, operations_; // numbers, by stage
    std::vector<std::vector<const EvalNode*>> results_;        // operations with a place, by stage
    Program::Given places_;
};

std::unique_ptr<const StagedProgram> StagedProgram::compile(const std::vector<const EvalNode*>& roots)
{
    auto all = std::make_unique<StagedProgram>();
    Compiler(*all).compile(roots);
    return all;
}

const StagedProgram& programOf(const EvalNode& node, std::atomic<const StagedProgram*>& kept)
{
    const StagedProgram* there = kept.load(std::memory_order_acquire);
    if (there != nullptr)
        return *there;
    std::unique_ptr<const StagedProgram> made = StagedProgram::compile({&node});
    if (kept.compare_exchange_strong(there, made.get(), std::memory_order_acq_rel))
        there = made.release(); // otherwise what another thread made is as good
    return *there;
}

// Execution ----------------------------------------------------------------------------------------------------------

void StagedProgram::run(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags, ValRepPtr* values) const
{
    if (isOneProgram_)
        return stages_[0].program->run(evaluator, cache, flags, nullptr, values);
    BorrowedValues kept;
    kept.values.resize(places_);
    ValRepPtr* const places = kept.values.data();
    const auto read = [&](const Source& source) {
        if (source.leaf != nullptr)
            return source.leaf->eval(evaluator, cache, flags);
        return source.last ? std::move(places[source.place]) : places[source.place];
    };
    for (const Stage& stage : stages_) {
        for (std::size_t c = stage.firstCall; c < stage.firstCall + stage.calls; ++c) {
            RunScope::throwIfCancelled();
            const Call& call = calls_[c];
            BorrowedValues args;
            for (std::size_t k = call.firstSource; k < call.firstSource + call.sources; ++k)
                args.values.push_back(read(sources_[k]));
            const OpNode* const op = asOperation(call.node);
            places[call.place] = op != nullptr
                                     ? op->apply(args.values.data(), flags)
                                     : static_cast<const GenOpNode*>(call.node)->apply(evaluator, cache, args.values, flags);
        }
        if (stage.program)
            stage.program->run(evaluator, cache, flags, places, places + stage.firstPlace);
        for (std::size_t k = stage.firstDone; k < stage.firstDone + stage.done; ++k)
            places[done_[k]].reset();
    }
    for (std::size_t i = 0; i < roots_.size(); ++i)
        values[i] = read(roots_[i]);
}

void StagedProgram::visitLeaves(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags) const
{
    for (const Stage& stage : stages_)
        if (stage.program)
            stage.program->visitLeaves(evaluator, cache, flags);
    for (const std::vector<Source>* const sources : {&sources_, &roots_})
        for (const Source& source : *sources)
            if (source.leaf != nullptr)
                source.leaf->eval(evaluator, cache, flags);
}

std::size_t StagedProgram::operationCount() const
{
    std::size_t count = calls_.size();
    for (const Stage& stage : stages_)
        if (stage.program)
            count += stage.program->operationCount();
    return count;
}

} // namespace qxeval
