// SPDX-License-Identifier: LicenseRef-qxkernel
// Evaluates formulas that a user types over the points of a table, and draws them.
//
// Builds on: formulas.hpp alone.
// Run:       evaluate examples/data/finned_pipe_points.csv "q=k*(T-22)" --define "k=1+0.01*T" --summary
//
//   1. Columns are the variables; definitions and formulas are added as text and compiled (evaluation.cpp).
//   2. The program evaluates all formulas together, block by block, on several threads; what they share is computed once.
//   3. A point without a value stops the run with its whole story: function, definitions, formula, row (explain.cpp).
//
// To try: --define "a=log(b)" --define "b=T-50" "2*a"; --gradient x,y; --complex "exp(i*20*x)".

#include "evaluation.hpp"
#include "support/chart.hpp"
#include "support/csv.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"
#include "support/picture.hpp"
#include "support/program.hpp"

#include "language.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <limits>
#include <set>
#include <utility>

namespace {

using namespace examples;

struct Task
{
    std::string points;
    std::vector<Formula> definitions;
    std::vector<Formula> formulas;
    EvaluationOptions options;
    std::string output;
    std::vector<std::string> keep;
    bool functions = false, summary = false;
    std::string plot;
    std::string triangles;
    std::string curve;
    std::string field;
    std::string title;
    std::string unit;
};

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    options.values("--define", "NAME=FORMULA", "a name that formulas may use; can be given again",
                  [&](const std::string& v) {
                      const Formula f = Formula::parse(v);
                      if (f.name == f.text)
                          throw UsageError("'" + v + "' has no NAME=");
                      t.definitions.push_back(f);
                  });
    options.values("--table", "NAME=FILE,METHOD,OUTSIDE", kTableHelp, [&](const std::string& v) {
        for (NamedTable& table : NamedTable::parse(v))
            t.options.tables.push_back(std::move(table));
    });
    options.flag("--complex", "values may be complex: columns NAME.re and NAME.im", t.options.complex);
    options.value("--gradient", "X,Y", "derivatives of each formula by one or two columns; two are drawn as arrows",
                  [&](const std::string& v) { t.options.gradient = split(v, ','); });
    options.value("--threads", "N", "threads to use (1)",
                  [&](const std::string& v) { t.options.threads = wholeNumber(v, 1, 1024); });
    options.value("--block", "N", "points evaluated together (1000)", [&](const std::string& v) {
        t.options.block = static_cast<std::size_t>(wholeNumber(v, 1, 10000000));
    });
    options.flag("--progress", "a progress bar, also where the errors go to no terminal", t.options.progress);
    options.text("--output", "FILE", "where the values go (standard output)", t.output);
    options.value("--keep", "COLUMNS", "columns of the input to repeat in the output, as x,y",
                  [&](const std::string& v) { t.keep = split(v, ','); });
    options.flag("--functions", "print what formulas may contain: functions and operators", t.functions);
    options.flag("--summary", "print smallest, mean and largest value instead of all", t.summary);
    options.text("--plot", "FILE.svg", "draw a formula over the triangles, columns x and y", t.plot);
    options.text("--triangles", "FILE.csv", "corners a, b, c: row numbers of the points, from 1", t.triangles);
    options.text("--curve", "FILE.svg", "draw formulas over the first column, derivatives by it, points of tables", t.curve);
    options.text("--field", "NAME", "the formula to draw (the first)", t.field);
    options.text("--title", "TEXT", "above the picture (the formula)", t.title);
    options.text("--unit", "TEXT", "above the colour bar", t.unit);

    const std::vector<std::string> words = options.read(argc, argv);
    if (options.helpWanted() || t.functions)
        return t;
    if (words.size() < 2)
        throw UsageError("a table of points and at least one formula are needed, see evaluate --help");
    if (t.plot.empty() != t.triangles.empty())
        throw UsageError("--plot and --triangles need each other");
    if (t.options.gradient.size() > 2)
        throw UsageError("--gradient needs one or two columns, as x,y");
    if (!t.curve.empty() && t.options.complex)
        throw UsageError("--curve draws real values");
    t.points = words.front();
    for (std::size_t k = 1; k < words.size(); ++k)
        t.formulas.push_back(Formula::parse(words[k]));
    std::set<std::string> kept;
    for (const std::string& name : t.keep)
        if (!kept.insert(name).second)
            throw UsageError("--keep: '" + name + "' is there twice");
    for (const Formula& f : t.formulas)
        if (kept.count(f.name) != 0)
            throw UsageError("--keep: there is a formula '" + f.name + "'");
    return t;
}

void writeValues(const Task& task, const Table& table, const std::vector<Column>& columns)
{
    CsvWriter writer;
    for (const std::string& name : task.keep)
        writer.add(name, table.column(name));
    for (const Column& c : columns)
        task.options.complex ? writer.add(c.name, c.complex) : writer.add(c.name, c.real);
    if (task.output.empty()) {
        writer.write(std::cout);
        return;
    }
    std::ofstream out(task.output, std::ios::binary);
    writer.write(out);
    if (!out.flush())
        throw FileError(task.output, "cannot be written");
}

// The number that stands for a value in summaries: itself, or its absolute value.
double sizeAt(const Column& c, std::size_t i)
{
    return c.complex.empty() ? c.real[i] : std::abs(c.complex[i]);
}

void printSummary(const Task& task, const Table& table, const std::vector<Column>& columns, double seconds)
{
    std::size_t width = 8;
    for (const Column& c : columns)
        width = std::max(width, c.name.size());
    std::printf("%-*s  %14s %14s %14s\n", static_cast<int>(width), task.options.complex ? "|value|" : "formula",
                "smallest", "mean", "largest");
    for (const Column& c : columns) {
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        double sum = 0.0;
        for (std::size_t i = 0; i < table.rows(); ++i) {
            const double v = sizeAt(c, i);
            low = std::min(low, v);
            high = std::max(high, v);
            sum += v;
        }
        if (std::isnan(sum)) // nothing of such a column can be compared; printf may give a NaN a sign
            low = high = sum = std::numeric_limits<double>::quiet_NaN();
        // Adding 0 turns -0 into 0.
        std::printf("%-*s  %14.6g %14.6g %14.6g\n", static_cast<int>(width), c.name.c_str(), low + 0.0,
                    sum / static_cast<double>(table.rows()) + 0.0, high + 0.0);
    }
    std::fprintf(stderr, "%zu points, %zu values in %.3g ms\n", table.rows(), table.rows() * columns.size(),
                 1e3 * seconds);
}

Mesh meshOf(const Table& points, const std::string& file)
{
    Mesh mesh;
    const std::vector<double>& x = points.column("x");
    const std::vector<double>& y = points.column("y");
    for (std::size_t i = 0; i < points.rows(); ++i)
        mesh.points.push_back({x[i], y[i]});
    const Table corners = readCsv(file);
    const std::vector<double>* abc[] = {&corners.column("a"), &corners.column("b"), &corners.column("c")};
    for (std::size_t t = 0; t < corners.rows(); ++t) {
        std::array<int, 3> triangle{};
        for (std::size_t k = 0; k < 3; ++k) {
            const double number = (*abc[k])[t];
            if (!(number >= 1.0 && number <= static_cast<double>(points.rows())) || number != std::floor(number))
                throw FileError(file, corners.lines[t],
                                toText(number) + " is no row of " + points.file + ", which has " +
                                    std::to_string(points.rows()));
            triangle[k] = static_cast<int>(number) - 1;
        }
        mesh.triangles.push_back(triangle);
    }
    orient(mesh);
    return mesh;
}

std::vector<double> realPart(const Column& c)
{
    std::vector<double> v = c.real;
    for (const std::complex<double>& z : c.complex)
        v.push_back(z.real());
    return v;
}

void draw(const Task& task, const Table& table, const std::vector<Column>& columns)
{
    std::size_t k = 0;
    while (k < columns.size() && !task.field.empty() && columns[k].name != task.field)
        ++k;
    if (k == columns.size())
        throw UsageError("--field: there is no formula '" + task.field + "'");
    const Mesh mesh = meshOf(table, task.triangles);

    std::string text = columns[k].name;
    for (const Formula& f : task.formulas)
        if (f.name == text && f.text != text)
            text += " = " + f.text;
    PictureText labels{task.title.empty() ? text : task.title, task.title.empty() ? "" : text, task.unit};
    if (task.options.complex)
        labels.unit = "real part " + labels.unit;

    std::vector<Point> arrows;
    if (task.options.gradient.size() == 2 && k + 2 < columns.size()) {
        const std::vector<double> dx = realPart(columns[k + 1]);
        const std::vector<double> dy = realPart(columns[k + 2]);
        for (std::size_t i = 0; i < dx.size(); ++i)
            arrows.push_back({dx[i], dy[i]});
    }
    std::ofstream out(task.plot);
    writePicture(out, mesh, realPart(columns[k]), labels, arrows);
    if (!out.flush())
        throw FileError(task.plot, "cannot be written");
}

/// A row for each formula: its curve, with the points of the table that it is, and its derivative by the first column.
void drawCurves(const Task& task, const Table& table, const std::vector<Column>& columns)
{
    const std::string& x = table.names.front();
    std::vector<std::vector<ChartPanel>> rows;
    const std::size_t step = 1 + task.options.gradient.size();
    for (std::size_t k = 0; k < task.formulas.size(); ++k) {
        const Formula& f = task.formulas[k];
        ChartPanel values{f.name == f.text ? f.name : f.name + " = " + f.text, {{table.columns.front(), columns[k * step].real}}};
        for (const NamedTable& t : task.options.tables)
            if (f.text == t.name + "(" + x + ")" && !t.x.empty())
                values.series.push_back({t.x, t.y, true});
        rows.push_back({values});
        for (std::size_t g = 0; g < task.options.gradient.size(); ++g)
            if (task.options.gradient[g] == x)
                rows.back().push_back({columns[k * step + g + 1].name, {{table.columns.front(), columns[k * step + g + 1].real}}});
    }
    std::ofstream out(task.curve);
    writeChart(out, task.title.empty() ? task.points : task.title, x, rows);
    if (!out.flush())
        throw FileError(task.curve, "cannot be written");
}

void printLanguage(std::ostream& out)
{
    const auto padded = [](std::string text, std::size_t width) {
        text.resize(std::max(width, text.size() + 2), ' ');
        return text;
    };
    for (const qx::FunctionInfo& f : qx::languageFunctions()) {
        out << padded(f.name + "(" + f.arguments + ")", 18) << f.formula << '\n';
        for (const auto& [key, value] : {std::pair("domain", f.domain), {"derivative", f.derivative}, {"accuracy", f.accuracy}})
            if (!value.empty())
                out << std::string(18, ' ') << padded(key, 12) << value << '\n';
    }
    out << "\nOperators, from the weakest to the strongest:\n";
    for (const qx::OperatorInfo& o : qx::languageOperators())
        out << "  " << o.strength << "  " << padded(o.sign, 18) << padded(o.meaning, 57) << padded(o.example, 14) << o.reads << '\n';
}

void run(const Task& task)
{
    if (task.functions)
        return printLanguage(std::cout);
    const Table table = readCsv(task.points);
    for (const std::string& name : task.keep)
        table.column(name); // a missing column is told before any work
    const auto start = std::chrono::steady_clock::now();
    const std::vector<Column> columns = evaluate(table, task.definitions, task.formulas, task.options);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;

    if (task.summary)
        printSummary(task, table, columns, seconds.count());
    else
        writeValues(task, table, columns);
    if (!task.plot.empty())
        draw(task, table, columns);
    if (!task.curve.empty())
        drawCurves(task, table, columns);
}

} // namespace

int main(int argc, char** argv)
{
    Options options("evaluate", "POINTS.csv FORMULA...",
                    "Evaluates formulas at the points of a table. A formula is an expression of the columns and\n"
                    "definitions, or NAME=EXPRESSION.");
    return guarded(options, [&] {
        const Task task = readTask(options, argc, argv);
        if (options.helpWanted())
            std::cout << options.help();
        else
            run(task);
        return 0;
    });
}
