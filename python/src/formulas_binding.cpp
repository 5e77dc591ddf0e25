// SPDX-License-Identifier: LicenseRef-qxkernel
#include "formulas_binding.hpp"

#include "failures.hpp"
#include "gil.hpp"
#include "interpolation_binding.hpp"
#include "interruptible.hpp"
#include "numpy_arrays.hpp"
#include "point_data.hpp"
#include "python_function.hpp"

#include "exprcomp.hpp"
#include "formulas.hpp"
#include "qxexception.hpp"

#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <sstream>

namespace py = pybind11;

using Complex = std::complex<double>;

namespace {

/// Points computed in one call where arrays are converted or a Python function is called: enough to share the cost of
/// the call, little enough to stay in the cache.
constexpr std::size_t blockOfPoints = 65536;
/// From here on a call works on a thread of its own, so that signals are looked at.
constexpr std::size_t manyPoints = 1000000;

/// A failure at one of the points of a call, `first` points into the arrays.
struct FailureAtPoint
{
    qxbase::Exception story;
    std::size_t first;
};

struct CallOptions
{
    bool listFailures = false;
    bool requireFinite = false;
    bool complexValues = false;
    int threads = 0;
    RunOptions run;
};

/// What formulas are made of.
class Builder
{
public:
    explicit Builder(std::vector<std::string> variables) : variables_(std::move(variables)) {}

    void define(const std::string& name, const std::string& text) { definitions_.emplace_back(name, text); }

    void pythonFunction(const std::string& name, const py::object& function, int arguments,
                        const std::vector<std::string>& parameters, const std::vector<std::string>& derivatives,
                        bool takesComplex)
    {
        functions_.emplace_back(name, ::pythonFunction(function, arguments, parameters, derivatives, takesComplex));
        callsPython_ = true;
    }

    /// A table under a name; its derivatives get names of their own, two orders deep.
    void table(const std::string& name, const TableFunction& table) { addTable(name, table, 2); }

    qx::Formulas formulas() const
    {
        qx::Formulas result(variables_);
        for (const auto& [name, function] : functions_)
            result.function(name, function);
        for (const auto& [name, text] : definitions_)
            result.define(name, text);
        return result;
    }
    bool callsPython() const { return callsPython_; }

private:
    void addTable(const std::string& name, const TableFunction& table, int derivatives)
    {
        qx::Function function;
        std::string parameters;
        for (int axis = 1; axis <= table.function->dim(); ++axis) {
            function.parameters.push_back("x" + std::to_string(axis));
            parameters += (axis > 1 ? "," : "") + function.parameters.back();
        }
        function.real = [interpolator = table.function](qx::Arguments<double> args, std::span<double> out) {
            std::vector<const double*> points;
            for (const auto& column : args)
                points.push_back(column.data());
            interpolator->evaluate(points.data(), out.size(), out.data());
        };
        for (int axis = 1; derivatives > 0 && axis <= table.function->dim(); ++axis) {
            const std::string slope = name + "_d" + std::to_string(axis);
            addTable(slope, {table.function->diff(axis)}, derivatives - 1);
            function.derivatives.push_back(slope + "(" + parameters + ")");
        }
        functions_.emplace_back(name, std::move(function));
    }

    std::vector<std::string> variables_;
    std::vector<std::pair<std::string, std::string>> definitions_;
    std::vector<std::pair<std::string, qx::Function>> functions_;
    bool callsPython_ = false;
};

/// Formulas that are evaluated together.
class CompiledFormulas
{
public:
    CompiledFormulas(const Builder& builder, const std::vector<std::string>& texts)
        : callsPython_(builder.callsPython()), program_(compile(builder, texts))
    {
    }

    /// (values, failures): an array a formula, and ((point, formula, story), ...) with their exact count, or None.
    py::tuple evaluate(const PointData& data, const std::vector<py::object>& out, const CallOptions& options) const
    {
        return call(data, out, formulas_.size(), options,
                    [&](const qx::Points& points, const std::vector<qx::Target>& targets, const qx::Options& how) {
                        std::vector<qx::Output> outputs;
                        for (std::size_t k = 0; k < targets.size(); ++k)
                            outputs.push_back({formulas_[k], targets[k]});
                        return program_->evaluate(points, outputs, how);
                    });
    }

    /// The same for the value of the first formula and its derivatives.
    py::tuple gradient(const PointData& data, const std::vector<std::string>& names, const std::vector<py::object>& out,
                       const CallOptions& options) const
    {
        return call(data, out, names.size() + 1, options,
                    [&](const qx::Points& points, const std::vector<qx::Target>& targets, const qx::Options& how) {
                        std::vector<qx::Derivative> by;
                        for (std::size_t k = 0; k < names.size(); ++k)
                            by.push_back({names[k], targets[k + 1]});
                        return program_->gradient(points, formulas_[0], targets[0], by, how);
                    });
    }

    /// (row starts, columns) of the Jacobian.
    std::pair<std::vector<std::size_t>, std::vector<std::size_t>> pattern(const std::vector<std::string>& names) const
    {
        qx::Pattern pattern = program_->jacobianPattern(formulas_, names);
        return {std::move(pattern.rowStart), std::move(pattern.column)};
    }
    /// (bytes of the class, names of the outputs, listing)
    py::tuple javaClass(const std::string& className, const std::string& method, const std::vector<std::string>& gradient,
                        bool withMain) const
    {
        ExprComp compiler;
        const std::vector<std::string> outputs = program_->feed(compiler, formulas_, gradient);
        std::vector<unsigned char> bytes;
        compiler.compile(className, method, bytes, withMain);
        std::ostringstream listing;
        compiler.dumpFlatList(listing);
        return py::make_tuple(py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size()), outputs,
                              listing.str());
    }
    std::string derivativeText(const std::string& name) const { return program_->derivativeText(formulas_[0], name); }

private:
    qx::Program compile(const Builder& builder, const std::vector<std::string>& texts)
    {
        qxutil::RunInfo run;
        RaisedInPython raised(run);
        try {
            qx::Formulas formulas = builder.formulas();
            for (const std::string& text : texts)
                formulas_.push_back(formulas.add(text));
            qx::Program program = formulas.compile();
            raised.rethrow();
            return program;
        } catch (const qxbase::Exception&) {
            raised.rethrow();
            throw;
        }
    }

    template <class Evaluate>
    py::tuple call(const PointData& data, const std::vector<py::object>& out, std::size_t values,
                   const CallOptions& options, const Evaluate& evaluate) const;
    template <class T, class Evaluate>
    qx::Failures work(const PointData& data, const std::vector<Destination>& to, qx::Options how,
                      const Evaluate& evaluate) const;

    bool callsPython_;
    std::vector<qx::Formula> formulas_;
    std::optional<qx::Program> program_;
};

/// Without the GIL. Blocks of points where something is converted, all at once where nothing is.
template <class T, class Evaluate>
qx::Failures CompiledFormulas::work(const PointData& data, const std::vector<Destination>& to, qx::Options how,
                                    const Evaluate& evaluate) const
{
    bool direct = data.isDirect();
    for (const Destination& destination : to)
        direct = direct && destination.isContiguous();
    const std::size_t block = direct ? std::max<std::size_t>(data.count(), 1) : blockOfPoints;

    std::vector<Column::Buffer> buffers(data.columns().size());
    std::vector<std::vector<T>> rooms(to.size());
    qx::Failures all;
    for (std::size_t first = 0; first < data.count(); first += block) {
        const std::size_t count = std::min(block, data.count() - first);
        qx::Points points(count);
        for (std::size_t k = 0; k < buffers.size(); ++k)
            data.columns()[k].lend(points, first, count, buffers[k]);
        std::vector<qx::Target> targets;
        for (std::size_t k = 0; k < to.size(); ++k) {
            if (!to[k].isContiguous())
                rooms[k].resize(count);
            T* const values = to[k].isContiguous() ? to[k].template data<T>(first) : rooms[k].data();
            targets.emplace_back(std::span<T>(values, count));
        }
        qx::Failures failures;
        try {
            failures = evaluate(points, targets, how);
        } catch (const qxbase::CancelException&) {
            throw;
        } catch (const qxbase::Exception& e) {
            throw FailureAtPoint{e, first};
        }
        for (std::size_t k = 0; k < to.size(); ++k)
            if (!to[k].isContiguous())
                to[k].scatter(first, count, rooms[k].data());
        all.count += failures.count;
        for (qx::Failure& failure : failures.first) {
            if (all.first.size() == qx::Failures::listed)
                break;
            failure.point += first;
            all.first.push_back(std::move(failure));
        }
    }
    return all;
}

template <class Evaluate>
py::tuple CompiledFormulas::call(const PointData& data, const std::vector<py::object>& out, std::size_t values,
                                 const CallOptions& options, const Evaluate& evaluate) const
{
    if (!out.empty() && out.size() != values)
        throw py::value_error("there are " + std::to_string(values) + " values and " + std::to_string(out.size()) +
                              " arrays for them");
    py::tuple results(values);
    std::vector<Destination> to;
    to.reserve(values);
    bool complexValues = options.complexValues || data.isComplex();
    for (const py::object& array : out)
        complexValues = complexValues || (!array.is_none() && isComplex(py::cast<py::array>(array)));
    for (std::size_t k = 0; k < values; ++k) {
        py::array array = !out.empty() && !out[k].is_none() ? py::cast<py::array>(out[k])
                          : complexValues                   ? py::array(py::array_t<Complex>(data.shape()))
                                                            : py::array(py::array_t<double>(data.shape()));
        to.emplace_back(array, data.shape());
        if (to.back().isComplex() != complexValues)
            throw py::type_error("out must be complex128 for complex values, for all of them");
        results[k] = array;
    }

    qx::Options how;
    how.onFailure = options.listFailures ? qx::OnFailure::nan : qx::OnFailure::raise;
    how.requireFinite = options.requireFinite;
    how.threads = callsPython_ ? 1 : options.threads;
    if (callsPython_)
        how.block = blockOfPoints;

    qx::Failures failures;
    const auto compute = [&](qxutil::RunInfo& run) {
        RaisedInPython raised(run);
        how.run = &run;
        try {
            failures = complexValues ? work<Complex>(data, to, how, evaluate) : work<double>(data, to, how, evaluate);
        } catch (const qxbase::CancelException&) {
            const AcquiredGil gil;
            raised.rethrow();
            throw;
        }
        const AcquiredGil gil;
        raised.rethrow();
    };
    try {
        if (data.count() >= manyPoints || callsPython_ || !options.run.progress.is_none() || options.run.cancel) {
            runInterruptible(options.run, compute);
        } else {
            const ReleasedGil released;
            failures = complexValues ? work<Complex>(data, to, how, evaluate) : work<double>(data, to, how, evaluate);
        }
    } catch (const FailureAtPoint& failure) {
        raiseAtPoint(failure.story, failure.first, data.shape());
    }
    if (!options.listFailures)
        return py::make_tuple(results, py::none());
    py::list list;
    for (const qx::Failure& failure : failures.first) {
        std::size_t formula = 0;
        while (formula < formulas_.size() && !(formulas_[formula] == failure.formula))
            ++formula;
        list.append(py::make_tuple(formula, errorAtPoint(failure.story, failure.point, 0, data.shape())));
    }
    return py::make_tuple(results, py::make_tuple(failures.count, list));
}

} // namespace

void bindFormulas(py::module_& module)
{
    py::class_<PointData>(module, "PointData")
        .def(py::init<const std::vector<std::pair<std::string, py::array>>&>())
        .def_property_readonly("shape", [](const PointData& data) { return py::tuple(py::cast(data.shape())); });

    py::class_<CallOptions>(module, "CallOptions")
        .def(py::init([](bool listFailures, bool requireFinite, bool complexValues, int threads,
                         const py::object& progress, const std::shared_ptr<CancelToken>& cancel) {
            return CallOptions{listFailures, requireFinite, complexValues, threads, {progress, cancel}};
        }));

    py::class_<Builder>(module, "FormulaBuilder")
        .def(py::init<std::vector<std::string>>())
        .def("define", &Builder::define)
        .def("python_function", &Builder::pythonFunction)
        .def("table", &Builder::table);

    py::class_<CompiledFormulas>(module, "CompiledFormulas")
        .def(py::init<const Builder&, const std::vector<std::string>&>())
        .def("evaluate", &CompiledFormulas::evaluate)
        .def("gradient", &CompiledFormulas::gradient)
        .def("java_class", &CompiledFormulas::javaClass)
        .def("pattern", &CompiledFormulas::pattern)
        .def("derivative_text", &CompiledFormulas::derivativeText);
}
