// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evaluation.hpp"

#include "formulas/explain.hpp"
#include "formulas/progressbar.hpp"

#include "formulas.hpp"
#include "qxexception.hpp"

#include <algorithm>
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

/// Formulas with the names of their columns.
class Evaluation
{
public:
    Evaluation(const Table& table, const std::vector<Formula>& definitions, const std::vector<Formula>& formulas,
               const EvaluationOptions& options)
        : table_(table), options_(options), host_(table.variables())
    {
        addTables(host_, options.tables);
        for (const Formula& d : definitions)
            define(d);
        for (const Formula& f : formulas) {
            add(f.name, f.text);
            for (const std::string& x : options_.gradient)
                add("d(" + f.name + "," + x + ")", "d(" + f.text + "," + x + ")");
        }
    }

    std::vector<Column> run()
    {
        qx::Points points(table_.rows());
        for (const std::string& x : table_.variables())
            points.set(x, table_.column(x));
        std::vector<qx::Output> outputs;
        for (std::size_t k = 0; k < columns_.size(); ++k) {
            if (options_.complex)
                outputs.push_back({formulas_[k], columns_[k].complex});
            else
                outputs.push_back({formulas_[k], columns_[k].real});
        }
        ProgressBar bar("evaluating", options_.progress, std::chrono::milliseconds(options_.progress ? 0 : 500));
        qxutil::RunInfo run(&bar);
        const qx::Program program = compile();
        try {
            program.evaluate(points, outputs, {.threads = options_.threads, .block = options_.block, .run = &run});
        } catch (const qxbase::Exception& e) {
            tell(e);
        }
        return std::move(columns_);
    }

private:
    void define(const Formula& d)
    {
        if (table_.find(d.name) >= 0)
            throw EvaluationError("definition '" + d.name + "' has the name of a column");
        try {
            host_.define(d.name, d.text);
        } catch (const qxbase::Exception& e) {
            if (e.getId() == "Name_in_use")
                throw EvaluationError("'" + d.name + "' is defined twice");
            throw EvaluationError("definition '" + d.name + "' cannot be read" + explain(e));
        }
    }

    void add(const std::string& name, const std::string& text)
    {
        for (const Column& c : columns_)
            if (c.name == name)
                throw EvaluationError("there are two formulas '" + name + "'");
        Column column{name, {}, {}};
        if (options_.complex)
            column.complex.resize(table_.rows());
        else
            column.real.resize(table_.rows());
        try {
            formulas_.push_back(host_.add(text));
        } catch (const qxbase::Exception& e) {
            throw EvaluationError("formula '" + name + "' cannot be read" + explain(e));
        }
        texts_.push_back(text);
        columns_.push_back(std::move(column));
    }

    qx::Program compile() const
    {
        try {
            return host_.compile();
        } catch (const qxbase::Exception& e) {
            const std::string definition = argumentOf(e, "In_definition", "Name");
            const std::string text = argumentOf(e, "In_formula", "Expression");
            const std::string what = !definition.empty() ? "definition '" + definition + "' cannot be read"
                                     : !text.empty()     ? "formula '" + nameOf(text) + "' cannot be read"
                                                         : "the definitions cannot be read";
            throw EvaluationError(what + explain(e));
        }
    }

    const std::string& nameOf(const std::string& text) const
    {
        const auto at = std::find(texts_.begin(), texts_.end(), text);
        return at == texts_.end() ? text : columns_[static_cast<std::size_t>(at - texts_.begin())].name;
    }

    /// The formula and the row that a failure is about, and its story.
    [[noreturn]] void tell(const qxbase::Exception& e) const
    {
        const std::string point = argumentOf(e, "Evaluation_failed_at_point", "Point");
        if (point.empty())
            throw EvaluationError("the formulas cannot be evaluated" + explain(e));
        throw EvaluationError("formula '" + nameOf(argumentOf(e, "Evaluation_failed_at_point", "Expression")) + "' fails at " +
                              rowText(table_, std::stoul(point)) + explain(e));
    }

    const Table& table_;
    const EvaluationOptions& options_;
    qx::Formulas host_;
    std::vector<qx::Formula> formulas_;
    std::vector<std::string> texts_;
    std::vector<Column> columns_;
};

} // namespace

std::vector<Column> evaluate(const Table& table, const std::vector<Formula>& definitions,
                             const std::vector<Formula>& formulas, const EvaluationOptions& options)
{
    return Evaluation(table, definitions, formulas, options).run();
}
