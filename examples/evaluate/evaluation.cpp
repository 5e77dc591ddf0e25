#include "evaluation.hpp"

#include "explain.hpp"
#include "pointevaluator.hpp"
#include "support/options.hpp"
#include "support/progress.hpp"

#include "arrayalloc.hpp"
#include "evalflags.hpp"
#include "evalrep.hpp"
#include "evaltree.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "valrepcache.hpp"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <utility>

namespace {

using examples::Table;

// A value that the options forbid: the formula is real by wish, its value is not.
struct ComplexValue
{
    std::complex<double> value;
};

// The evaluation of one thread: what belongs to it alone.
class Worker
{
public:
    Worker(const Table& table, const Definitions& definitions, const NodeMakerPtr& nodeMaker, std::size_t block)
        : evaluator_(boost::make_shared<PointEvaluator>(table, definitions, nodeMaker)),
          cache_(boost::make_shared<ValRepCache>(boost::make_shared<ArrayAllocImpl>(block, 1ul << 24)))
    {
    }

    const boost::shared_ptr<PointEvaluator>& evaluator() const { return evaluator_; }

    // A new range of rows: values of named variables are kept from one formula to the next, not longer.
    void begin(std::size_t first, std::size_t count)
    {
        evaluator_->setRows(first, count);
        cache_->reset();
        first_ = first;
        count_ = count;
    }

    void evaluate(const EvalTreePtr& tree, Column& column)
    {
        const ValRepPtr value = tree->eval(evaluator_, cache_, EvalValues);
        value->throwError();
        const int n = static_cast<int>(count_);
        if (!column.complex.empty()) {
            value->copyToArray(column.complex.data() + first_, n, 1);
            return;
        }
        if (value->isComplex())
            refuse(*value);
        value->copyToArray(column.real.data() + first_, n, 1);
    }

private:
    void refuse(const ValRep& value) const
    {
        std::vector<std::complex<double>> numbers(count_);
        value.copyToArray(numbers.data(), static_cast<int>(count_), 1);
        for (const std::complex<double>& z : numbers)
            if (z.imag() != 0.0)
                throw ComplexValue{z};
    }

    boost::shared_ptr<PointEvaluator> evaluator_;
    ValRepCachePtr cache_;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
};

std::string rowText(const Table& table, std::size_t row)
{
    std::string text = table.file + ":" + std::to_string(table.lines[row]) + " (";
    for (std::size_t k = 0; k < table.names.size(); ++k)
        text += (k > 0 ? ", " : "") + table.names[k] + " = " + examples::toText(table.columns[k][row]);
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
        examples::Progress progress("evaluating", static_cast<long>(rows));
        std::atomic<std::size_t> bad{blocks}; // the first block that failed

#pragma omp parallel num_threads(options_.threads)
        {
            Worker worker(table_, definitions_, nodeMaker_, options_.block);
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
        const Worker worker(table_, definitions_, nodeMaker_, options_.block);
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

    void evaluateRows(Worker& worker, std::size_t first, std::size_t count)
    {
        worker.begin(first, count);
        for (std::size_t k = 0; k < trees_.size(); ++k)
            worker.evaluate(trees_[k], columns_[k]);
    }

    // What stops formula k on these rows; empty if nothing does.
    std::string failure(Worker& worker, std::size_t k, std::size_t first, std::size_t count)
    {
        try {
            worker.begin(first, count);
            worker.evaluate(trees_[k], columns_[k]);
            return {};
        } catch (const qxbase::Exception& e) {
            return explain(e);
        } catch (const ComplexValue& c) {
            return "\n  the value is complex: " + examples::toText(c.value.real()) +
                   (c.value.imag() < 0.0 ? "" : "+") + examples::toText(c.value.imag()) +
                   "*i (--complex writes complex values)";
        }
    }

    // Halves the failing rows until one is left, then tells the story there.
    [[noreturn]] void tell(std::size_t first, std::size_t count)
    {
        Worker worker(table_, definitions_, nodeMaker_, options_.block);
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

Formula Formula::parse(const std::string& typed)
{
    const std::size_t equal = typed.find('=');
    const std::string left = typed.substr(0, equal);
    const bool named = equal != std::string::npos && equal > 0 &&
                       typed.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_ ") ==
                           equal &&
                       typed.compare(equal, 2, "==") != 0;
    if (!named)
        return {typed, typed};
    return {examples::split(left, '=').front(), typed.substr(equal + 1)};
}

std::vector<Column> evaluate(const Table& table, const std::vector<Formula>& definitions,
                             const std::vector<Formula>& formulas, const EvaluationOptions& options)
{
    return Evaluation(table, definitions, formulas, options).run();
}
