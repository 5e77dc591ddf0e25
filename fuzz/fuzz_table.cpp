// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as a file of tables, by every number of axes: what is read is a full table of finite numbers over ascending axes
// that makes an interpolator, the same at a second reading; the rest is refused with a place in the file.

#include "interpfilereader.hpp"
#include "qxexception.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

namespace {

void check(bool holds)
{
    if (!holds)
        std::abort();
}

bool sameBits(const std::vector<double>& a, const std::vector<double>& b)
{
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

bool allFinite(const std::vector<double>& numbers)
{
    for (const double x : numbers)
        if (!std::isfinite(x))
            return false;
    return true;
}

void checkTable(const InterpTableData& table)
{
    std::size_t points = 1;
    for (const auto& axis : *table.axes) {
        check(!axis.empty() && allFinite(axis));
        for (std::size_t i = 1; i < axis.size(); ++i)
            check(axis[i - 1] < axis[i]);
        points *= axis.size();
    }
    check(!table.axes->empty() && table.axisNames.size() == table.axes->size());
    check(!table.values.empty() && table.names.size() == table.values.size());
    for (const auto& values : table.values)
        check(values->size() == points && allFinite(*values));
}

/// In the middle of the grid and outside of it: the block form has the bits of the single calls, or the method refuses the
/// table. The nearest point's value is one of the table's.
void interpolate(const InterpTableData& table, const char* method, const char* extension)
{
    try {
        const InterpTable f = makeInterpolator(table, table.values.size() - 1, {method, extension});
        std::vector<double> inside, outside;
        for (const auto& axis : *table.axes) {
            inside.push_back(axis[axis.size() / 2]);
            outside.push_back(axis.back() + 1.0);
        }
        for (const std::vector<double>& point : {inside, outside}) {
            const double single = (*f.interpolator)(point);
            check(std::strcmp(method, "neighbor") != 0 || std::isfinite(single));
            std::vector<const double*> coordinates;
            for (const double& x : point)
                coordinates.push_back(&x);
            double block = 0.0;
            f.interpolator->evaluate(coordinates.data(), 1, &block);
            check((std::isnan(single) && std::isnan(block)) || sameBits({single}, {block}));
        }
    } catch (const qxbase::Exception&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto read = [&](int nAxes) {
        std::istringstream in(text);
        return InterpFileReader(nAxes).read(in, "fuzz");
    };
    for (int nAxes = 0; nAxes <= 4; ++nAxes)
        try {
            const InterpTableData table = read(nAxes), again = read(nAxes);
            checkTable(table);
            check(nAxes == 0 || table.axes->size() == static_cast<std::size_t>(nAxes));
            for (std::size_t i = 0; i < table.values.size(); ++i)
                check(sameBits(*table.values[i], *again.values.at(i)));
            for (const char* method : {"neighbor", "linear", "piecewisecubic", "cubicspline"})
                interpolate(table, method, "clamp");
            interpolate(table, "linear", "linear");
        } catch (const qxbase::Exception& refused) {
            check(refused.getId() == "Invalid_table_file");
            check(refused.getArgs(0).size() == 4);
        }
    return 0;
}
