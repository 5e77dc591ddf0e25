#include "evaluation.hpp"

#include "formulas/explain.hpp"
#include "formulas/pointevaluator.hpp"
#include "support/progress.hpp"

#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <atomic>
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
        const std::size_t rows = table_.rows();
        const std::size_t blocks = (rows + options_.block - 1) / options_.block;
        Progress progress("evaluating", static_cast<long>(rows));
        std::atomic<std::size_t> bad{blocks}; // the first block that failed

#pragma omp parallel num_threads(options_.threads)
        {
            BlockEvaluator worker(table_.names, definitions_, nodeMaker_, options_.block);
#pragma omp for schedule(dynamic)
            for (std::size_t b = 0; b < blocks; ++b) {
                if (b > bad)
                    continue;
                const std::size_t first = b * options_.block;
                const std::size_t count = std::min(options_.block, rows - first);
                try {
                    evaluateRows(worker, first, count);
                } catch (...) { // told in full below, on one thread
                    std::size_t known = bad;
                    while (b < known && !bad.compare_exchange_weak(known, b)) {
                    }
                }
                progress.advance(static_cast<long>(count));
            }
        }
        if (bad < blocks)
            tell(bad * options_.block, std::min(options_.block, rows - bad * options_.block));
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
        const BlockEvaluator worker(table_.names, definitions_, nodeMaker_, options_.block);
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

    void setRows(BlockEvaluator& worker, std::size_t first, std::size_t count) const
    {
        std::vector<const double*> values;
        for (const std::vector<double>& column : table_.columns)
            values.push_back(column.data() + first);
        worker.setPoints(std::move(values), count);
    }

    void evaluateFormula(BlockEvaluator& worker, std::size_t k, std::size_t first)
    {
        if (options_.complex)
            worker.values(*trees_[k], columns_[k].complex.data() + first);
        else
            worker.values(*trees_[k], columns_[k].real.data() + first);
    }

    void evaluateRows(BlockEvaluator& worker, std::size_t first, std::size_t count)
    {
        setRows(worker, first, count);
        for (std::size_t k = 0; k < trees_.size(); ++k)
            evaluateFormula(worker, k, first);
    }

    // What stops formula k on these rows; empty if nothing does.
    std::string failure(BlockEvaluator& worker, std::size_t k, std::size_t first, std::size_t count)
    {
        try {
            setRows(worker, first, count);
            evaluateFormula(worker, k, first);
            return {};
        } catch (const qxbase::Exception& e) {
            return explain(e);
        } catch (const ComplexValue& c) {
            return "\n  the value is complex: " + toText(c.value.real()) +
                   (c.value.imag() < 0.0 ? "" : "+") + toText(c.value.imag()) +
                   "*i (--complex writes complex values)";
        }
    }

    // Halves the failing rows until one is left, then tells the story there.
    [[noreturn]] void tell(std::size_t first, std::size_t count)
    {
        BlockEvaluator worker(table_.names, definitions_, nodeMaker_, options_.block);
        for (std::size_t k = 0; k < trees_.size(); ++k) {
            if (failure(worker, k, first, count).empty())
                continue;
            while (count > 1) {
                const std::size_t half = count / 2;
                if (failure(worker, k, first, half).empty()) {
                    first += half;
                    count -= half;
                } else {
                    count = half;
                }
            }
            throw EvaluationError("formula '" + columns_[k].name + "' fails at " + rowText(table_, first) +
                                  failure(worker, k, first, 1));
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
