#include "evaluation.hpp"

#include "formulas/blocks.hpp"
#include "formulas/explain.hpp"
#include "formulas/pointevaluator.hpp"
#include "support/progress.hpp"

#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <utility>

namespace {

using namespace examples;

std::string rowText(const Table& table, std::size_t row)
{
    std::string text = table.file + ":" + std::to_string(table.lines[row]) + " (";
    for (std::size_t k = 0; k < table.names.size(); ++k)
        text += (k > 0 ? ", " : "") + table.names[k] + " = " + toText(table.columns[k][row]);
    return text + ")";
}

// The whole work: formulas against blocks of rows.
class Evaluation
{
public:
    Evaluation(const Table& table, const std::vector<Formula>& definitions, const std::vector<Formula>& formulas,
               const EvaluationOptions& options)
        : table_(table), options_(options), nodeMaker_(boost::make_shared<NodeMaker>())
    {
        for (const Formula& d : definitions) {
            if (table.find(d.name) >= 0)
                throw EvaluationError("definition '" + d.name + "' has the name of a column");
            if (!definitions_.emplace(d.name, boost::make_shared<EvalTree>(d.text, false)).second)
                throw EvaluationError("'" + d.name + "' is defined twice");
        }
        for (const Formula& f : formulas)
            add(f);
        parse();
    }

    std::vector<Column> run()
    {
        Progress progress("evaluating", static_cast<long>(table_.rows()), options_.progress,
                          std::chrono::milliseconds(options_.progress ? 0 : 500));
        const Range bad = runBlocks(
            table_.rows(), options_.block, options_.threads, [&] { return makeWorker(); },
            [&](BlockEvaluator& worker, Range rows) {
                evaluateRows(worker, rows);
                progress.advance(static_cast<long>(rows.count));
            });
        if (bad.count > 0)
            tell(bad);
        return std::move(columns_);
    }

private:
    void add(const Formula& f)
    {
        append(f.name, boost::make_shared<EvalTree>(f.text, false));
        for (const std::string& x : options_.gradient)
            append("d(" + f.name + "," + x + ")", boost::make_shared<EvalTree>("d(" + f.text + "," + x + ")", false));
    }

    void append(const std::string& name, const EvalTreePtr& tree)
    {
        for (const Column& c : columns_)
            if (c.name == name)
                throw EvaluationError("there are two formulas '" + name + "'");
        trees_.push_back(tree);
        columns_.emplace_back();
        columns_.back().name = name;
        if (options_.complex)
            columns_.back().complex.resize(table_.rows());
        else
            columns_.back().real.resize(table_.rows());
    }

    // Unreadable text is found before any number is computed.
    void parse()
    {
        const BlockEvaluator worker = makeWorker();
        const auto read = [&](const std::string& what, const EvalTreePtr& tree) {
            try {
                tree->parse(worker.evaluator());
            } catch (const qxbase::Exception& e) {
                throw EvaluationError(what + " cannot be read" + explain(e));
            }
        };
        for (const auto& [name, tree] : definitions_)
            read("definition '" + name + "'", tree);
        for (std::size_t k = 0; k < trees_.size(); ++k)
            read("formula '" + columns_[k].name + "'", trees_[k]);
    }

    BlockEvaluator makeWorker() const
    {
        return BlockEvaluator(table_.names, definitions_, nodeMaker_, options_.block);
    }

    void setRows(BlockEvaluator& worker, Range rows) const
    {
        std::vector<const double*> values;
        for (const std::vector<double>& column : table_.columns)
            values.push_back(column.data() + rows.first);
        worker.setPoints(std::move(values), rows.count);
    }

    void evaluateFormula(BlockEvaluator& worker, std::size_t k, std::size_t first)
    {
        if (options_.complex)
            worker.values(*trees_[k], columns_[k].complex.data() + first);
        else
            worker.values(*trees_[k], columns_[k].real.data() + first);
    }

    void evaluateRows(BlockEvaluator& worker, Range rows)
    {
        setRows(worker, rows);
        for (std::size_t k = 0; k < trees_.size(); ++k)
            evaluateFormula(worker, k, rows.first);
    }

    // What stops formula k on these rows; empty if nothing does.
    std::string failure(BlockEvaluator& worker, std::size_t k, Range rows)
    {
        return storyOf([&] {
            setRows(worker, rows);
            evaluateFormula(worker, k, rows.first);
        });
    }

    // Tells the story of the first failing formula at the first row where it fails.
    [[noreturn]] void tell(Range rows)
    {
        BlockEvaluator worker = makeWorker();
        for (std::size_t k = 0; k < trees_.size(); ++k) {
            if (failure(worker, k, rows).empty())
                continue;
            const std::size_t row = firstFailing(rows, [&](Range r) { return !failure(worker, k, r).empty(); });
            throw EvaluationError("formula '" + columns_[k].name + "' fails at " + rowText(table_, row) +
                                  failure(worker, k, {row, 1}));
        }
        throw EvaluationError("a block of rows failed for a reason that is gone: probably memory ran out");
    }

    const Table& table_;
    const EvaluationOptions& options_;
    NodeMakerPtr nodeMaker_;
    Definitions definitions_;
    std::vector<EvalTreePtr> trees_;
    std::vector<Column> columns_;
};

} // namespace

std::vector<Column> evaluate(const Table& table, const std::vector<Formula>& definitions,
                             const std::vector<Formula>& formulas, const EvaluationOptions& options)
{
    return Evaluation(table, definitions, formulas, options).run();
}
