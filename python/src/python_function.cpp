// SPDX-License-Identifier: LicenseRef-qxkernel
#include "python_function.hpp"

#include "gil.hpp"

#include <pybind11/complex.h>
#include <pybind11/numpy.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

namespace py = pybind11;

namespace {

thread_local RaisedInPython* currentCall = nullptr;

/// A Python object that any thread may drop.
std::shared_ptr<py::object> shared(const py::object& object)
{
    return std::shared_ptr<py::object>(new py::object(object), [](py::object* p) {
        const AcquiredGil gil;
        delete p;
    });
}

template <class T>
void call(const py::object& function, qx::Arguments<T> arguments, std::span<T> out)
{
    const AcquiredGil gil;
    try {
        py::tuple arrays(arguments.size());
        for (std::size_t k = 0; k < arguments.size(); ++k)
            arrays[k] = py::array_t<T>(static_cast<py::ssize_t>(arguments[k].size()), arguments[k].data());
        const py::object result = function(*arrays);
        const auto values = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(result);
        if (!values)
            throw py::error_already_set();
        if (values.size() == 1 && values.ndim() == 0)
            return std::fill(out.begin(), out.end(), *values.data());
        if (values.ndim() != 1 || static_cast<std::size_t>(values.size()) != out.size())
            throw py::value_error("a function of the user's gave " + std::to_string(values.size()) + " values for " +
                                  std::to_string(out.size()) + " points");
        std::copy_n(values.data(), out.size(), out.begin());
    } catch (py::error_already_set&) {
        if (currentCall == nullptr)
            throw;
        currentCall->keep(std::current_exception());
        std::fill(out.begin(), out.end(), T(std::numeric_limits<double>::quiet_NaN()));
    } catch (py::builtin_exception&) {
        if (currentCall == nullptr)
            throw;
        currentCall->keep(std::current_exception());
        std::fill(out.begin(), out.end(), T(std::numeric_limits<double>::quiet_NaN()));
    }
}

} // namespace

RaisedInPython::RaisedInPython(qxutil::RunInfo& run) : run_(run), outer_(std::exchange(currentCall, this)) {}

RaisedInPython::~RaisedInPython() { currentCall = outer_; }

RaisedInPython* RaisedInPython::current() { return currentCall; }

void RaisedInPython::keep(std::exception_ptr failure)
{
    if (!failure_)
        failure_ = std::move(failure);
    run_.cancel();
}

void RaisedInPython::rethrow()
{
    if (failure_)
        std::rethrow_exception(std::exchange(failure_, nullptr));
}

qx::Function pythonFunction(const py::object& function, int arguments, const std::vector<std::string>& parameters,
                            const std::vector<std::string>& derivatives, bool takesComplex)
{
    const std::shared_ptr<py::object> kept = shared(function);
    qx::Function result;
    result.parameters = parameters;
    for (int k = static_cast<int>(parameters.size()); k < arguments; ++k)
        result.parameters.push_back("x" + std::to_string(k + 1));
    result.real = [kept](qx::Arguments<double> args, std::span<double> out) { call<double>(*kept, args, out); };
    if (takesComplex)
        result.complex = [kept](qx::Arguments<std::complex<double>> args, std::span<std::complex<double>> out) {
            call<std::complex<double>>(*kept, args, out);
        };
    result.derivatives = derivatives;
    return result;
}
