// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "funid.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"

/// The operator object of an id: a new object at each call, for the factory of nodes to keep.
/// Fails: "Evaluation_internal_error" (evalfun) for a number that is no FunId.
QX_API FunObjPtr makeFunObj(FunId id);

/// Number of arguments of an operator, 1 or 2; 0 for a number that is no FunId.
QX_API int funArity(FunId id);

/// u^e for a fixed exponent.
QX_API FunObjPtr makeConstPow(double e);

/// Fills the list with one new object of each function of the expression language, in the search order of names.
QX_API void makeStandardFunctions(std::vector<FunObjPtr>& functions);
