// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interptable.hpp"

#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <optional>

namespace {

/// The number in "value=v"; nothing if the text is another.
std::optional<double> constantIn(const std::string& extension)
{
    double value = 0.0;
    if (!extension.starts_with("value=") || !qxutil::isDouble(extension.substr(6), value))
        return std::nullopt;
    return value;
}

} // namespace

InterpTable makeInterpolator(const InterpTableData& data, std::size_t column, const InterpOptions& options)
{
    if (column >= data.values.size())
        QX_RAISE("interptable", "Wrong_size_of_interpolation_data", "Column", static_cast<unsigned long>(column + 1));
    const std::string &method = options.method, &extension = options.extension;
    const bool isCubic = method == "piecewisecubic" || method == "cubicspline";
    const std::optional<double> constant = constantIn(extension);

    std::optional<Interpolator::ExtMethod> ext;
    if (extension == "clamp" || extension == "error")
        ext = Interpolator::ExtEnd;
    else if (constant)
        ext = Interpolator::ExtValue;
    else if (extension == "linear" && (isCubic || method == "linear"))
        ext = isCubic ? Interpolator::ExtLine : Interpolator::ExtContinue;
    else if (extension == "polynomial" && isCubic)
        ext = Interpolator::ExtDefault;
    // An unknown method is told first: it has no extensions at all.
    InterpTable table{Interpolator::createInterpolator(data.axes, data.values[column], method,
                                                       ext.value_or(Interpolator::ExtEnd), constant.value_or(0.0)),
                      extension == "error"};
    if (!ext)
        QX_RAISE("interptable", "Unknown_extrapolation_method",
                 qxbase::ExceptionArgs{{"Method", method}, {"Extension", extension}});
    return table;
}
