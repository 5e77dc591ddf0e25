// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What a built-in function says about itself beside its kernel.

#include "functions/kernels_detail.hpp"
#include "functions/rules_detail.hpp"

namespace qxfun_detail {

enum Properties : unsigned {
    kAlwaysReal = 1,
    kRealIfReal = 2,
    kLinear1 = 4,  ///< linear in argument 1
    kLinear2 = 8,
    kOperator = 16 ///< printed as "(" a name b ")"; a sign, "(" name a ")", in the unary case
};

/// The source unit that error records name, with the message keys of the domain and the kind bit. A null key: the common
/// record ("evalfun", "funeval").
struct ErrorKeys
{
    const char* file = nullptr;
    const char* domain = nullptr;
    const char* kind = nullptr;
};

using SimplifyRule = EvalNodePtr (*)(const FunObjPtr& self, const EvalNodes& args, NodeMaker& maker);

struct UnaryRecord
{
    const char* name;
    unsigned properties;
    qxkernels::Unary qxkernels::KernelTable::*kernel;
    Term (*derivative)(const Term& u) = nullptr; ///< null: zero
    ErrorKeys errors = {};
    SimplifyRule simplify = nullptr; ///< null: build the operation again
};

struct BinaryRecord
{
    const char* name;
    unsigned properties;
    qxkernels::BinaryLoop qxkernels::KernelTable::*kernel;
    Term (*derivative1)(const Term& u, const Term& v) = nullptr;
    Term (*derivative2)(const Term& u, const Term& v) = nullptr;
    ErrorKeys errors = {};
    SimplifyRule simplify = nullptr;
};

} // namespace qxfun_detail

// Defines a function class declared in a public header, from the fields of its record.
#define QX_DEFINE_UNARY(Class, ...)                                          \
    static const qxfun_detail::UnaryRecord record##Class = {__VA_ARGS__};    \
    Class::Class() : KernelUnFun(record##Class) {}
#define QX_DEFINE_BINARY(Class, ...)                                         \
    static const qxfun_detail::BinaryRecord record##Class = {__VA_ARGS__};   \
    Class::Class() : KernelBinFun(record##Class) {}
