// SPDX-License-Identifier: LicenseRef-qxkernel
// Compiles formulas, and their derivatives, to a Java class with one static method.
//
// Builds on: evaluate (names, definitions), the compiler's ExprComp.
// Run:       compile --class Fin --inputs x,y,T --define "h=6*(1+0.02*T)" "q=h*(T-20)*exp(-x^2)" --gradient x,T -o Fin.class
//
//   1. Formulas become nodes, derivatives are made on the nodes, and both feed the compiler's flat list (law.cpp).
//   2. The compiler orders the list, computes equal things once, and writes the class; --list shows what it made of it.
//   3. The same list is interpreted here: --eval for one point, --points for the rows of a table.
//
// To try: --list; --main, then: java Fin 0.1 0.2 80; "q=sqrt(T-100)" and T = 80: status -2.

#include "law.hpp"
#include "support/csv.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"
#include "support/picture.hpp"
#include "support/program.hpp"

#include "qxexception.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>

namespace {

using namespace examples;

struct Task
{
    LawText law;
    std::string className = "Law", methodName = "eval", output;
    bool withMain = false, list = false;
    std::vector<double> at;
    std::string points, beside, plot, triangles, title, unit;
};

bool isJavaName(const std::string& name)
{
    static const std::set<std::string> reserved{
        "abstract", "assert", "boolean", "break", "byte", "case", "catch", "char", "class", "const", "continue", "default",
        "do", "double", "else", "enum", "extends", "final", "finally", "float", "for", "goto", "if", "implements", "import",
        "instanceof", "int", "interface", "long", "native", "new", "package", "private", "protected", "public", "return",
        "short", "static", "strictfp", "super", "switch", "synchronized", "this", "throw", "throws", "transient", "try",
        "void", "volatile", "while", "true", "false", "null", "_"};
    const auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$'; };
    return !name.empty() && name.size() < 1000 && !std::isdigit(static_cast<unsigned char>(name.front()))
           && std::all_of(name.begin(), name.end(), isPart) && !reserved.count(name);
}

// com.x.Fin and com/x/Fin are the same class.
std::string slashed(std::string name)
{
    std::replace(name.begin(), name.end(), '.', '/');
    std::size_t from = 0;
    for (std::size_t to; from <= name.size(); from = to + 1) {
        to = std::min(name.find('/', from), name.size());
        if (!isJavaName(name.substr(from, to - from)))
            throw UsageError("'" + name + "' is no name of a Java class");
    }
    return name;
}

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    options.value("--class", "NAME", "the class, as Fin or com.x.Fin (Law)",
                  [&](const std::string& v) { t.className = slashed(v); });
    options.value("--method", "NAME", "its method (eval)", [&](const std::string& v) {
        if (!isJavaName(v) || v == "modImpl")
            throw UsageError("'" + v + "' cannot be the name of the method");
        t.methodName = v;
    });
    options.value("--inputs", "X,Y", "the variables, in the order of the array",
                  [&](const std::string& v) { t.law.inputs = split(v, ','); });
    options.values("--define", "NAME=FORMULA", "a name that formulas may use; can be given again",
                  [&](const std::string& v) { t.law.definitions.push_back(Formula::parse(v)); });
    options.value("--gradient", "X,Y", "adds the derivatives of each formula by these inputs",
                  [&](const std::string& v) { t.law.gradient = split(v, ','); });
    options.flag("--prefix", "formulas are prefix text, as + x * 2 y", t.law.prefix);
    options.text("-o,--output", "FILE", "where the class goes (NAME.class)", t.output);
    options.flag("--main", "adds a driver: java NAME values... [how often]", t.withMain);
    options.flag("--list", "print the flat list of definitions", t.list);
    options.value("--eval", "A,B", "interpret at this point", [&](const std::string& v) {
        for (const std::string& number : split(v, ',')) {
            double value;
            if (!fromText(number, value))
                throw UsageError("'" + number + "' is no number");
            t.at.push_back(value);
        }
    });
    options.text("--points", "FILE.csv", "interpret at each row; columns are the inputs", t.points);
    options.text("--beside", "FILE.csv", "compare with the values that another program found", t.beside);
    options.text("--plot", "FILE.svg", "draw the first output over the triangles, columns x and y", t.plot);
    options.text("--triangles", "FILE.csv", "corners a, b, c: row numbers of the points, from 1", t.triangles);
    options.text("--title", "TEXT", "above the picture (the formula)", t.title);
    options.text("--unit", "TEXT", "above the colour bar", t.unit);

    const std::vector<std::string> formulas = options.read(argc, argv);
    if (options.helpWanted())
        return t;
    if (formulas.empty())
        throw UsageError("at least one formula is needed, see compile --help");
    std::set<std::string> used;
    for (const std::string& name : t.law.inputs)
        if (!used.insert(name).second)
            throw UsageError("the input " + name + " is there twice");
    for (const std::string& text : formulas)
        t.law.outputs.push_back(Formula::parse(text));
    for (const std::vector<Formula>* group : {&t.law.definitions, &t.law.outputs})
        for (const Formula& f : *group)
            if (!used.insert(f.name).second)
                throw UsageError("the name " + f.name + " is there twice");
    for (const std::string& name : t.law.gradient)
        if (std::find(t.law.inputs.begin(), t.law.inputs.end(), name) == t.law.inputs.end())
            throw UsageError("--gradient " + name + ": there is no such input");
    if (!t.at.empty() && t.at.size() != t.law.inputs.size())
        throw UsageError("--eval needs one number for each input");
    if (t.withMain && t.methodName == "main")
        throw UsageError("with --main the method cannot be main");
    if (t.plot.empty() != t.triangles.empty() || (!t.plot.empty() && t.points.empty()))
        throw UsageError("--plot needs --points and --triangles");
    if (t.output.empty())
        t.output = t.className.substr(t.className.rfind('/') + 1) + ".class";
    return t;
}

std::string joined(const std::vector<std::string>& names, bool numbered)
{
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i ? ", " : "") + (numbered ? std::to_string(i) + ' ' : std::string()) + names[i];
    return text;
}

// How to call the class, as a comment.
void printCall(const Task& task, const std::vector<std::string>& outputs)
{
    std::string dotted = task.className;
    std::replace(dotted.begin(), dotted.end(), '/', '.');
    std::cout << "// " << task.output << ": static int " << dotted << '.' << task.methodName
              << "(double[] in, double[] out)\n//   in:  " << joined(task.law.inputs, true) << "\n//   out: "
              << joined(outputs, true)
              << "\n//   status: 0 success, -1 logarithm of a negative number, -2 square root of one, -4 acos or asin beyond 1,\n"
                 "//           -5 a power that is no number; a NaN fails these tests too\n//\n//   double[] out = new double["
              << dotted << ".NARGOUT];\n//   int status = " << dotted << '.' << task.methodName << "(new double[] {"
              << joined(task.law.inputs, false) << "}, out);\n";
}

// The outputs at each row. A row without a value ends the run.
std::vector<std::vector<double>> overPoints(const Task& task, const ExprComp& compiler, const Table& table, std::size_t nOutputs)
{
    std::vector<std::vector<double>> columns(nOutputs, std::vector<double>(table.rows()));
    std::vector<double> in(task.law.inputs.size()), out;
    for (std::size_t row = 0; row < table.rows(); ++row) {
        for (std::size_t k = 0; k < in.size(); ++k)
            in[k] = table.column(task.law.inputs[k])[row];
        try {
            compiler.eval(in, out);
        } catch (const qxbase::Exception& e) {
            throw FileError(task.points, e.getId() + " in line " + std::to_string(table.lines[row]));
        }
        for (std::size_t k = 0; k < nOutputs; ++k)
            columns[k][row] = out[k];
    }
    return columns;
}

// The first rows of both programs' values and the largest difference of all.
void compare(const Task& task, const std::vector<std::string>& names, const std::vector<std::vector<double>>& ours)
{
    const Table other = readCsv(task.beside);
    std::printf("%-16s %22s %22s\n", "first rows of", "interpreter", "class");
    double largest = 0;
    for (std::size_t k = 0; k < names.size(); ++k) {
        const std::vector<double>& theirs = other.columns.at(k);
        if (theirs.size() != ours[k].size())
            throw FileError(task.beside, "has another number of rows");
        for (std::size_t i = 0; i < theirs.size(); ++i) {
            if (i < 2)
                std::printf("%-16s %22.17g %22.17g\n", names[k].c_str(), ours[k][i], theirs[i]);
            largest = std::max(largest, std::fabs(ours[k][i] - theirs[i]) / std::max(1.0, std::fabs(theirs[i])));
        }
    }
    std::printf("largest difference over %zu rows: %.2g, relative where values exceed 1\n", ours.front().size(), largest);
}

void draw(const Task& task, const Table& points, const std::vector<double>& field)
{
    const Table triangles = readCsv(task.triangles);
    Mesh mesh;
    for (std::size_t i = 0; i < points.rows(); ++i)
        mesh.points.push_back({points.column("x")[i], points.column("y")[i]});
    for (std::size_t i = 0; i < triangles.rows(); ++i) {
        Triangle corners;
        for (std::size_t k = 0; k < 3; ++k) {
            const double number = triangles.column(std::string(1, static_cast<char>('a' + k)))[i];
            if (!(number >= 1 && number <= static_cast<double>(points.rows())))
                throw FileError(task.triangles, "names a point that is not there");
            corners[k] = static_cast<int>(number) - 1;
        }
        mesh.triangles.push_back(corners);
    }
    orient(mesh);
    const Formula& f = task.law.outputs.front();
    std::ofstream out(task.plot, std::ios::binary);
    writePicture(out, mesh, field, {task.title.empty() ? f.name : task.title, f.text.size() < 80 ? f.text : "", task.unit});
    if (!out.flush())
        throw FileError(task.plot, "cannot be written");
}

void work(const Task& task)
{
    ExprComp compiler;
    const std::vector<std::string> outputs = feed(task.law, compiler);
    compiler.compile(task.className, task.methodName, task.output, task.withMain);
    printCall(task, outputs);
    if (task.list)
        compiler.dumpFlatList(std::cout);
    std::cout.flush();
    if (!task.at.empty()) {
        std::vector<double> out;
        compiler.eval(task.at, out);
        for (std::size_t k = 0; k < out.size(); ++k)
            std::cout << outputs[k] << " = " << toText(out[k]) << '\n';
    }
    if (!task.points.empty()) {
        const Table table = readCsv(task.points);
        const std::vector<std::vector<double>> columns = overPoints(task, compiler, table, outputs.size());
        if (!task.beside.empty())
            compare(task, outputs, columns);
        else
            std::printf("interpreted at %zu points\n", table.rows());
        if (!task.plot.empty())
            draw(task, table, columns.front());
    }
}

} // namespace

int main(int argc, char** argv)
{
    Options options("compile", "FORMULA...", "Compiles formulas to a Java class with one static method.");
    return guarded(
        options,
        [&] {
            const Task task = readTask(options, argc, argv);
            if (options.helpWanted())
                std::cout << options.help();
            else
                work(task);
            return 0;
        },
        [](const qxbase::Exception& e) {
            const bool explained = e.size() && !e.getArgs(0).empty();
            return e.getId() + (explained ? ": " + e.getArgs(0).front().first + e.getArgs(0).front().second : "");
        });
}
