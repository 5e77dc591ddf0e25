#pragma once

#include "evalfun.hpp"
#include "qxexception.hpp"

#include <string>
#include <vector>

namespace qxeval {

/// The function of a list by name. Raises "Unknown_function_name" or "Wrong_number_of_function_arguments" with "Name".
inline FunObjPtr findFunction(const std::vector<FunObjPtr>& funs, const std::string& name, int nArgs)
{
    for (const FunObjPtr& f : funs)
        if (f->getName() == name) {
            if (f->nArgs() != nArgs)
                QX_RAISE("evalconst", "Wrong_number_of_function_arguments", "Name", name);
            return f;
        }
    QX_RAISE("evalconst", "Unknown_function_name", "Name", name);
}

} // namespace qxeval
