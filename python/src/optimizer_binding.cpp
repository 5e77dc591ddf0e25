// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimizer_binding.hpp"

#include "gil.hpp"
#include "interruptible.hpp"
#include "numpy_arrays.hpp"
#include "python_function.hpp"

#include "optimnp.hpp"
#include "prop.hpp"
#include "qxexception.hpp"

#include <pybind11/stl.h>

#include <boost/make_shared.hpp>
#include <mutex>
#include <string>
#include <variant>

namespace py = pybind11;

namespace {

using Doubles = Array<double, 1>;
using Ints = Array<int, 1>;

/// Functions and the entries of their Jacobian by a Python function x -> (F, G); its exceptions leave unchanged.
class PythonFunctions : public OptimNPCallback
{
public:
    explicit PythonFunctions(const py::object& function) : function_(function) {}

    void eval(int& status, int n, const double* x, bool, int nF, double* F, bool needG, int lenG, double* G) override
    {
        if (status >= 2) // the last call only tells the end
            return;
        const AcquiredGil gil;
        try {
            const py::tuple values = function_(py::array_t<double>(n, x));
            copy(values[0], nF, F);
            if (needG)
                copy(values[1], lenG, G);
        } catch (py::error_already_set&) {
            keep(status);
        } catch (py::builtin_exception&) {
            keep(status);
        }
    }

private:
    static void copy(const py::object& from, int count, double* to)
    {
        const auto values = Vector<double>::ensure(from);
        if (!values)
            throw py::error_already_set();
        if (values.size() != count)
            throw py::value_error("the functions gave " + std::to_string(values.size()) + " numbers for " +
                                  std::to_string(count));
        std::copy_n(values.data(), count, to);
    }
    static void keep(int& status)
    {
        RaisedInPython::current()->keep(std::current_exception());
        status = -2;
    }

    const py::object& function_;
};

using Option = std::variant<int, double, std::string>;

qxbase::Prop propertiesOf(const std::map<std::string, Option>& options)
{
    qxbase::Prop properties;
    for (const auto& [name, value] : options)
        std::visit([&, &key = name](const auto& v) { properties.setany(key, boost::any(v)); }, value);
    OptimState::checkNP(properties);
    return properties;
}

/// The optimizer is not reentrant.
std::mutex oneAtATime;

/// (x, F, xmul, Fmul, inform, iterations, message)
py::tuple optimize(const py::object& function, const py::array& start, const py::array& xlow, const py::array& xupp,
                   const py::array& Flow, const py::array& Fupp, const std::vector<int>& rows,
                   const std::vector<int>& columns, const std::map<std::string, Option>& options,
                   const py::object& progress, const std::shared_ptr<CancelToken>& cancel)
{
    qxoptim::initializeOptim();
    OptimState::loadLib();
    const qxbase::Prop properties = propertiesOf(options);
    Doubles x = toArray1<double>(start), lower = toArray1<double>(xlow), upper = toArray1<double>(xupp);
    Doubles Flower = toArray1<double>(Flow), Fupper = toArray1<double>(Fupp), xmul(x.size()), A(0ul);
    const unsigned long nF = Flower.size();
    Doubles F(nF), Fmul(nF);
    Ints xstate(x.size()), Fstate(nF), iG(rows.size()), jG(columns.size()), none(0ul);
    std::copy(rows.begin(), rows.end(), iG.data());
    std::copy(columns.begin(), columns.end(), jG.data());
    xmul = 0.0, F = 0.0, Fmul = 0.0, xstate = 0, Fstate = 0;
    int inform = 0, nInf = 0, iterations = 0, majors = 0;
    double sInf = 0.0;
    std::string message;

    Run run;
    run.execute({progress, cancel}, [&](qxutil::RunInfo& info) {
        const std::lock_guard alone(oneAtATime);
        RaisedInPython raised(info);
        const auto callback = boost::make_shared<PythonFunctions>(function);
        const auto state = boost::make_shared<OptimState>(4000, 500, 500, true, 0, 0);
        state->setRunInfo(&info);
        state->init();
        try {
            OptimNP::solve(callback, state, properties, static_cast<int>(nF), static_cast<int>(x.size()), none, none, A,
                           iG, jG, x, lower, upper, xmul, xstate, F, Flower, Fupper, Fmul, Fstate, 1, inform, nInf, sInf,
                           iterations, majors, message);
        } catch (const qxbase::Exception&) {
            const AcquiredGil gil;
            raised.rethrow();
            throw;
        }
    });
    return py::make_tuple(toNumpy(x), toNumpy(F), toNumpy(xmul), toNumpy(Fmul), inform, iterations, message);
}

} // namespace

void bindOptimizer(py::module_& module)
{
    module.def("optimize", &optimize);
    module.def("set_optimizer_path", &OptimState::setLibraryPath);
}
