// SPDX-License-Identifier: LicenseRef-qxkernel
#include "points_detail.hpp"

#include "formulas.hpp"

#include <algorithm>

namespace qx {

Points::Points(std::size_t count) : count_(count) {}
Points::~Points() = default;
Points::Points(const Points&) = default;
Points& Points::operator=(const Points&) = default;
Points::Points(Points&&) noexcept = default;
Points& Points::operator=(Points&&) noexcept = default;

void Points::put(PointColumn column)
{
    const auto same = std::find_if(columns_.begin(), columns_.end(),
                                   [&](const PointColumn& c) { return c.name == column.name; });
    if (same != columns_.end())
        *same = std::move(column);
    else
        columns_.push_back(std::move(column));
}

void Points::requireCount(const std::string& name, std::size_t found) const
{
    if (found != count_)
        QX_RAISE("formulas", "Wrong_number_of_values",
                 qxbase::ExceptionArgs{{"Name", name}, {"Expected", std::to_string(count_)}, {"Found", std::to_string(found)}});
}

Points& Points::set(const std::string& name, std::span<const double> values)
{
    requireCount(name, values.size());
    put({.name = name, .real = values.data(), .isArray = true});
    return *this;
}

Points& Points::set(const std::string& name, std::span<const std::complex<double>> values)
{
    requireCount(name, values.size());
    put({.name = name, .isComplex = true, .complex = values.data(), .isArray = true});
    return *this;
}

Points& Points::set(const std::string& name, double value)
{
    put({.name = name, .number = value});
    return *this;
}

Points& Points::set(const std::string& name, const std::complex<double>& value)
{
    put({.name = name, .isComplex = value.imag() != 0.0, .number = value});
    return *this;
}

} // namespace qx
