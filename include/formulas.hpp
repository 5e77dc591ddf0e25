// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"
#include "qxexport.hpp"
#include "qxrun.hpp"

#include <complex>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

struct InterpTable;

/// Formulas over points: the ready-made host of the evaluation engine, and the classes to begin with.
///
///     qx::Formulas f({"x", "y", "a"});                      // the names that points give values to
///     f.define("r", "sqrt(x^2+y^2)");
///     const auto wave = f.add("exp(-r^2)*sin(a*x)");        // syntax is checked here
///     const auto program = f.compile();                     // names are resolved here; immutable from here on
///
///     qx::Points p(x.size());
///     p.set("x", x).set("y", y).set("a", 3.0);              // arrays are lent, a number holds for all points
///     program.evaluate(p, wave, out);
///     program.gradient(p, wave, out, {{"x", dx}, {"y", dy}});
///
/// Formulas collects what the user typed, a Program evaluates it, Points are the values of the variables: nothing is
/// bound by position and nothing that changes is shared by threads.
class ExprComp;

namespace qx {

class CompiledFormulas;
struct FormulaText;
struct PointColumn;

/// A formula of a Formulas object and of the programs compiled from it. A plain value; copies name the same formula.
class QX_API Formula
{
public:
    /// No formula; using it raises "Unknown_formula".
    Formula() = default;
    friend bool operator==(const Formula&, const Formula&) = default;

private:
    friend class CompiledFormulas;
    friend class Formulas;
    Formula(unsigned long owner, std::size_t index) : owner_(owner), index_(index) {}

    unsigned long owner_ = 0;
    std::size_t index_ = 0;
};

/// The values of variables at a number of points.
///
/// Arrays are lent: they must stay as they are while an evaluation runs. Threads: as for a plain value; any number of
/// evaluations may read one object.
class QX_API Points
{
public:
    explicit Points(std::size_t count);
    ~Points();
    Points(const Points&);
    Points& operator=(const Points&);
    Points(Points&&) noexcept;
    Points& operator=(Points&&) noexcept;

    /// The values of a variable, one for each point; setting it again replaces them. Raises "Wrong_number_of_values" with
    /// "Name", "Expected" and "Found".
    Points& set(const std::string& name, std::span<const double> values);
    Points& set(const std::string& name, std::span<const std::complex<double>> values);
    /// One number for all points.
    Points& set(const std::string& name, double value);
    Points& set(const std::string& name, const std::complex<double>& value);
    /// An array that ends with the statement cannot be lent.
    Points& set(const std::string& name, std::vector<double>&& values) = delete;
    Points& set(const std::string& name, std::vector<std::complex<double>>&& values) = delete;

    std::size_t size() const { return count_; }

private:
    friend class CompiledFormulas;

    void requireCount(const std::string& name, std::size_t found) const;
    void put(PointColumn column);

    std::size_t count_;
    std::vector<PointColumn> columns_;
};

/// A function of the user's own, computed block by block.
///
///     f.function("sinc", {.parameters = {"t"},
///                         .real = [](qx::Arguments<double> args, std::span<double> out) {
///                             for (std::size_t i = 0; i < out.size(); ++i)
///                                 out[i] = args[0][i] == 0 ? 1.0 : std::sin(args[0][i]) / args[0][i];
///                         },
///                         .derivatives = {"(cos(t)-sinc(t))/t"}});
///
/// The bodies must be pure: the same arguments give the same values, nothing else changes, any thread may call at any
/// time, also while formulas are compiled (calls with constants only are computed then). A NaN that they write, and an
/// exception of theirs, makes the point fail.
template <class T>
using Arguments = std::span<const std::span<const T>>;

struct Function
{
    std::vector<std::string> parameters{}; ///< at least one; their names matter in derivatives only
    /// out[i] becomes the value for args[0][i], args[1][i], ...; all spans have the length of out.
    std::function<void(Arguments<double> args, std::span<double> out)> real{};
    /// The same for complex arguments; without it a complex argument makes the point fail.
    std::function<void(Arguments<std::complex<double>> args, std::span<std::complex<double>> out)> complex{};
    /// The partial derivatives, one for each parameter, as formulas of the parameters and of whatever formulas may use.
    /// Without them the function cannot be differentiated ("No_derivative_of_function").
    std::vector<std::string> derivatives{};
};

/// What an evaluation does at a point where a formula has no value.
enum class OnFailure {
    raise,  ///< raises the story of the first failing formula at its first failing point
    nan     ///< writes NaN there and goes on; the failures are listed
};

struct Options
{
    int threads = 0;                  ///< at most so many; 0: as many as the library may use
    OnFailure onFailure = OnFailure::raise;
    bool requireFinite = false;       ///< an infinite value is a failure; otherwise it is a value (1/x at 0)
    bool keepReal = false;            ///< real numbers stay real inside: sqrt(-1) fails where it stands. Faster.
    std::size_t block = 1000;         ///< points computed together; values do not depend on it (but see Program)
    qxutil::RunInfo* run = nullptr;   ///< progress and cancel, lent; progress comes on the calling thread
};

/// A formula without a value at a point.
struct Failure
{
    std::size_t point;
    Formula formula;
    qxbase::Exception story; ///< innermost entry first: what failed, definitions that used it, the formula, the point
};

/// The failures of an evaluation with OnFailure::nan.
struct Failures
{
    static constexpr std::size_t listed = 100;

    std::size_t count = 0;      ///< of pairs of formula and point, exact
    std::vector<Failure> first; ///< the first `listed` of them by point, then in the order of the outputs
};

/// Where values go: an array of real or of complex numbers, lent.
class Target
{
public:
    template <class R>
        requires std::is_constructible_v<std::span<double>, R&&>
    Target(R&& values) : to_(std::span<double>(values))
    {
    }
    template <class R>
        requires std::is_constructible_v<std::span<std::complex<double>>, R&&>
    Target(R&& values) : to_(std::span<std::complex<double>>(values))
    {
    }

    std::size_t size() const
    {
        return std::visit([](const auto& s) { return s.size(); }, to_);
    }
    const std::variant<std::span<double>, std::span<std::complex<double>>>& get() const { return to_; }

private:
    std::variant<std::span<double>, std::span<std::complex<double>>> to_;
};

/// The values of a formula, and where they go.
struct Output
{
    Formula formula;
    Target values;
};

/// A derivative by a variable, and where its values go.
struct Derivative
{
    std::string variable;
    Target values;
};

/// Which of a row of formulas depend on which of a row of variables: for formula i the indices of variables, ascending,
/// are column[rowStart[i]] ... column[rowStart[i + 1] - 1].
struct Pattern
{
    std::vector<std::size_t> rowStart;
    std::vector<std::size_t> column;
};

/// Compiled formulas. Immutable: any number of threads may evaluate one program, each with its own points and targets.
/// Copies are cheap and share everything.
///
/// Evaluation. Points are computed in blocks, by several threads where there are many and the caller is not inside a
/// parallel region; values are the same bits for any number of threads. Formulas evaluated together compute what they
/// have in common once. Temporary memory: for each thread a few blocks for each variable and definition in use.
///
/// Failures. A formula without a value at some point of a block makes the whole block fail in the engine; the block is
/// then halved until the points stand alone, so a point fails exactly if it fails by itself. Cost: at most
/// 2 + log2(block) times the work of the block. Not a number is no value; in a real target neither is a complex value. A
/// point that turns complex within a formula takes its block to complex arithmetic, where the last bits of its neighbours
/// may differ from real arithmetic (not with keepReal).
///
/// Raises, before anything is computed: "Unknown_formula" for a formula of other Formulas or added after compile(),
/// "Unknown_variable_name" with "Name" for a name in points that the program does not know, "Variable_without_values" with
/// "Name", "Wrong_number_of_values" with "Name", "Expected", "Found" for a target, "Invalid_option" with "Option".
/// While computing: with OnFailure::raise the story of the failure, which ends in "Evaluation_failed_at_point" with "Point"
/// (from 0), the values of the variables at this point and "Expression"; among the identifiers it may begin with are those
/// of the engine, "Complex_number_in_real_expression", "Unexpected_NaN", "Infinite_value", "Exception_in_function" (with
/// "Name", "Reason"). CancelException when the run is cancelled. "Out_of_memory_evaluating_formulas". After a failure the
/// targets hold some of the values.
class QX_API Program
{
public:
    /// A program without formulas.
    Program();

    Failures evaluate(const Points& points, Formula formula, Target values, const Options& options = {}) const;
    Failures evaluate(const Points& points, std::initializer_list<Output> outputs, const Options& options = {}) const;
    Failures evaluate(const Points& points, std::span<const Output> outputs, const Options& options = {}) const;

    /// The value of a formula and its partial derivatives, made symbolically when first asked for. They are evaluated
    /// together, so that common parts are computed once. An empty target for the value: derivatives only.
    /// Raises also: "Unknown_variable_name" for a derivative by anything but a variable; what differentiation raises.
    Failures gradient(const Points& points, Formula formula, Target values, std::initializer_list<Derivative> by,
                      const Options& options = {}) const;
    Failures gradient(const Points& points, Formula formula, Target values, std::span<const Derivative> by,
                      const Options& options = {}) const;

    /// Whether the derivative of a formula by a variable is other than 0, and whether it depends on one of the variables
    /// again. Found in the graph: never false where it is true, but x-x counts as dependent.
    bool dependsOn(Formula formula, const std::string& variable) const;
    bool isNonlinearIn(Formula formula, const std::vector<std::string>& variables) const;
    /// The sparsity of the Jacobian: dependsOn for each pair.
    Pattern jacobianPattern(std::span<const Formula> formulas, std::span<const std::string> variables) const;

    /// The text of a formula as it was added; of its derivative by a variable as the engine writes it.
    std::string text(Formula formula) const;
    std::string derivativeText(Formula formula, const std::string& variable) const;
    const std::vector<std::string>& variables() const;

    /// Feeds formulas, each followed by its derivatives by the names in `gradient`, to a compiler of Java classes that holds
    /// nothing yet: the inputs are variables() in their order, all of them. Returns the outputs' names, "q" and "d(q,x)",
    /// with the formula's text for q. Real formulas of standard functions only: raises "Cannot create definitions from "
    /// and the name for what compiled code does not know, functions of the user's own among them; "Unknown_formula",
    /// "Unknown_variable_name". The compiler is of no use then.
    std::vector<std::string> feed(ExprComp& compiler, std::span<const Formula> formulas,
                                  std::span<const std::string> gradient = {}) const;

private:
    friend class Formulas;

    explicit Program(std::shared_ptr<const CompiledFormulas> impl) : impl_(std::move(impl)) {}

    std::shared_ptr<const CompiledFormulas> impl_;
};

/// Collects variables, definitions, functions and formulas. Then compile() makes a program of them; more may be added
/// and compiled again.
///
/// Names: a letter or underscore, then letters, digits and underscores. "pi" and the imaginary unit "i" are known
/// unless they are given another meaning. Threads: one object belongs to one thread at a time. After a failure the object
/// is as it was.
class QX_API Formulas
{
public:
    /// The names of the variables. Raises "Invalid_name" or "Name_in_use" with "Name".
    explicit Formulas(const std::vector<std::string>& variables);
    ~Formulas();
    Formulas(Formulas&&) noexcept;
    Formulas& operator=(Formulas&&) noexcept;

    /// A name that stands for an expression of variables and other definitions, in any order.
    /// Raises "Invalid_name", "Name_in_use"; "Syntax_error_in_expression" with "Expression".
    Formulas& define(const std::string& name, const std::string& expression);
    /// A function of the user's own; a standard function cannot be replaced.
    /// Raises "Invalid_name", "Name_in_use", "Invalid_function" with "Name" and "Reason"; "Syntax_error_in_expression".
    Formulas& function(const std::string& name, Function function);
    /// A table (interptable.hpp) as a function of as many arguments as it has axes, with the table's own derivatives:
    ///     f.table("mu", makeInterpolator(InterpFileReader().read("steel.csv"), 0, {"cubicspline", "linear"}));
    /// The interpolator is shared. A standard function cannot be replaced. Raises "Invalid_name", "Name_in_use"; as
    /// InterpFun.
    Formulas& table(const std::string& name, const InterpTable& table);
    /// A formula to evaluate. Raises "Syntax_error_in_expression" with "Expression".
    Formula add(const std::string& expression);

    /// Raises "Unknown_variable_name" with "Name" (and "Nearest" where a known name is near), "Unknown_function_name"
    /// likewise, "Wrong_number_of_function_arguments" with "Name", "Expected" and "Found", "circvar" with "var" and "Circle"
    /// for definitions that lead back to themselves; a further entry "In_formula", "In_definition" or "In_derivative" tells
    /// where.
    Program compile() const;

private:
    std::unique_ptr<FormulaText> text_;
};

} // namespace qx
