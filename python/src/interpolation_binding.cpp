// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpolation_binding.hpp"

#include "gil.hpp"
#include "numpy_arrays.hpp"

#include <pybind11/stl.h>

#include <vector>

namespace py = pybind11;

namespace {

std::vector<double> numbers(const Vector<double>& values)
{
    return std::vector<double>(values.data(), values.data() + values.size());
}

TableFunction make(const std::vector<Vector<double>>& axes, const Vector<double>& values, const std::string& method,
           int extension, double outside)
{
    const auto points = boost::make_shared<Interpolator::Axes>();
    for (const auto& axis : axes)
        points->push_back(numbers(axis));
    return {Interpolator::createInterpolator(points, boost::make_shared<std::vector<double>>(numbers(values)), method,
                                             static_cast<Interpolator::ExtMethod>(extension), outside)};
}

/// Values at points given as one array a coordinate, all of the same length.
py::array evaluate(const TableFunction& table, const std::vector<Vector<double>>& coordinates)
{
    const auto count = coordinates.empty() ? 0 : coordinates[0].size();
    std::vector<const double*> points;
    for (const auto& axis : coordinates) {
        if (axis.size() != count)
            throw py::value_error("the coordinates have different lengths");
        points.push_back(axis.data());
    }
    if (static_cast<int>(points.size()) != table.function->dim() && table.function->dim() != 0)
        throw py::value_error("the table has " + std::to_string(table.function->dim()) + " coordinates, not " +
                              std::to_string(points.size()));
    py::array_t<double> result(count);
    double* const out = result.mutable_data();
    {
        const ReleasedGil released;
        table.function->evaluate(points.data(), static_cast<std::size_t>(count), out);
    }
    return result;
}

} // namespace

void bindInterpolation(py::module_& module)
{
    py::class_<TableFunction>(module, "TableFunction")
        .def(py::init(&make))
        .def("evaluate", &evaluate)
        .def("diff", [](const TableFunction& table, int axis) { return TableFunction{table.function->diff(axis)}; })
        .def_property_readonly("dim", [](const TableFunction& table) { return table.function->dim(); })
        .def("range", [](const TableFunction& table, int axis) { return table.function->range(axis); });
}
