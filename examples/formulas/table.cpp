// SPDX-License-Identifier: LicenseRef-qxkernel
#include "table.hpp"

#include "formula.hpp"
#include "interpfilereader.hpp"
#include "qxexception.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"

#include <map>

namespace examples {
namespace {

/// The failure of a table in the words of a person who has its file before them.
[[noreturn]] void tell(const qxbase::Exception& e, const std::string& file, const InterpOptions& how)
{
    std::map<std::string, std::string> args;
    for (const auto& [key, value] : e.getArgs(0))
        args[key] = value;
    if (e.getId() == "Invalid_table_file") {
        const std::string column = args["Column"] == "0" ? "" : "column " + args["Column"] + ": ";
        throw FileError(file, std::stol(args["Line"]), column + args["Reason"]);
    }
    if (e.getId() == "Cannot_open_table_file")
        throw FileError(file, "cannot be opened");
    if (e.getId() == "Unknown_interpolation_method")
        throw UsageError("there is no interpolation method '" + how.method + "'");
    if (e.getId() == "Unknown_extrapolation_method")
        throw UsageError("'" + how.extension + "' is nothing that holds outside a table of method '" + how.method + "'");
    if (e.getId() == "Not_enough_interpolation_points")
        throw FileError(file, "a cubic needs three points");
    if (e.getId() == "Cubic_spline_interpolation_only_1D" || e.getId() == "Piecewise_cubic_interpolation_only_1D")
        throw FileError(file, "cubics take tables of one coordinate");
    throw FileError(file, e.toString());
}

} // namespace

std::vector<NamedTable> NamedTable::parse(const std::string& typed)
{
    const std::size_t equal = typed.find('=');
    const std::vector<std::string> names = split(typed.substr(0, equal), ',');
    const std::vector<std::string> rest =
        equal == std::string::npos ? std::vector<std::string>() : split(typed.substr(equal + 1), ',');
    if (rest.empty() || rest.size() > 3 || rest.front().empty() || names.front().empty())
        throw UsageError("'" + typed + "' is not NAME=FILE,METHOD,OUTSIDE");
    InterpOptions how;
    if (rest.size() > 1)
        how.method = rest[1];
    if (rest.size() > 2)
        how.extension = rest[2];

    std::vector<NamedTable> tables;
    try {
        const InterpTableData data = InterpFileReader().read(rest.front());
        if (names.size() > data.values.size())
            throw FileError(rest.front(), std::to_string(data.values.size()) + " columns of values, not " +
                                              std::to_string(names.size()));
        for (std::size_t k = 0; k < names.size(); ++k) {
            NamedTable t{names[k], makeInterpolator(data, k, how), {}, {}};
            if (data.axes->size() == 1) {
                t.x = data.axes->front();
                t.y = *data.values[k];
            }
            tables.push_back(std::move(t));
        }
    } catch (const qxbase::Exception& e) {
        tell(e, rest.front(), how);
    }
    return tables;
}

void addTables(qx::Formulas& host, const std::vector<NamedTable>& tables)
{
    for (const NamedTable& t : tables)
        try {
            host.table(t.name, t.table);
        } catch (const qxbase::Exception& e) {
            throw EvaluationError(e.getId() == "Name_in_use" ? "there is a function '" + t.name + "' already"
                                                             : "'" + t.name + "' is no name for a table");
        }
}

} // namespace examples
