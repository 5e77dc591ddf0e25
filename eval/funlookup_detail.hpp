// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "base/nearestname_detail.hpp"
#include "evalfun.hpp"
#include "funfactory.hpp"
#include "qxexception.hpp"

#include <map>
#include <string>
#include <vector>

namespace qxeval {

using FunTable = std::map<std::string, FunObjPtr>;

/// The standard functions by name, and plussq, which operators print as.
inline FunTable standardFunctions()
{
    std::vector<FunObjPtr> funs;
    makeStandardFunctions(funs);
    funs.push_back(makeFunObj(PLUSSQ));
    FunTable table;
    for (const FunObjPtr& f : funs)
        table.emplace(f->getName(), f);
    return table;
}

/// The keys of a table, in order.
template <class Table>
std::vector<std::string> namesOf(const std::map<std::string, Table>& table)
{
    std::vector<std::string> names;
    for (const auto& [name, value] : table)
        names.push_back(name);
    return names;
}

/// Raises "Unknown_function_name" (with "Nearest" where a known name is near) or "Wrong_number_of_function_arguments" with "Name".
inline const FunObjPtr& findFunction(const FunTable& table, const std::string& name, int nArgs)
{
    const auto found = table.find(name);
    if (found == table.end())
        QX_RAISE("evalconst", "Unknown_function_name", qxbase::unknownName(name, namesOf(table)));
    if (found->second->nArgs() != nArgs)
        QX_RAISE("evalconst", "Wrong_number_of_function_arguments", "Name", name);
    return found->second;
}

} // namespace qxeval
