// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprcomp.hpp"

namespace qxcompiler {

/// What is fixed about a kind of definition.
struct KindInfo
{
    int kind;
    const char* name; ///< of listings, and of definitions read as text
    int nArgs;
    bool inText;
    bool commutative;
    int codeBytes; ///< of the operation alone
};

constexpr int kindCount = 56;
constexpr bool yes = true, no = false;

inline constexpr KindInfo kindTable[kindCount] = {
    {ExprComp::Abs, "abs", 1, yes, no, 3},
    {ExprComp::Acos, "acos", 1, yes, no, 15},
    {ExprComp::And, "and", 2, yes, yes, 14},
    {ExprComp::Asin, "asin", 1, yes, no, 15},
    {ExprComp::Atan, "atan", 1, yes, no, 3},
    {ExprComp::Atan2, "atan2", 2, yes, no, 3},
    {ExprComp::Ceil, "ceil", 1, yes, no, 3},
    {ExprComp::Conj, "conj", 1, yes, no, 0},
    {ExprComp::Cos, "cos", 1, yes, no, 3},
    {ExprComp::Cosh, "cosh", 1, yes, no, 15},
    {ExprComp::Cot, "cot", 1, yes, no, 7},
    {ExprComp::Coth, "coth", 1, yes, no, 68},
    {ExprComp::Csc, "csc", 1, yes, no, 7},
    {ExprComp::Csch, "csch", 1, yes, no, 20},
    {ExprComp::Divide, "/", 2, yes, no, 1},
    {ExprComp::DivideNonZero, "/NZ", 2, no, no, 1},
    {ExprComp::Equal, "==", 2, yes, yes, 10},
    {ExprComp::Exp, "exp", 1, yes, no, 3},
    {ExprComp::Fix, "fix", 1, yes, no, 16},
    {ExprComp::Floor, "floor", 1, yes, no, 3},
    {ExprComp::GreaterEqual, ">=", 2, yes, no, 10},
    {ExprComp::Greater, ">", 2, yes, no, 10},
    {ExprComp::Identity, "identity", 1, yes, no, 0},
    {ExprComp::If, "if", 3, yes, no, 11},
    {ExprComp::Imag, "imag", 1, yes, no, 2},
    {ExprComp::LessEqual, "<=", 2, yes, no, 10},
    {ExprComp::Log, "log", 1, yes, no, 11},
    {ExprComp::Log10, "log10", 1, yes, no, 15},
    {ExprComp::Log2, "log2", 1, yes, no, 15},
    {ExprComp::Less, "<", 2, yes, no, 10},
    {ExprComp::Max, "max", 2, yes, yes, 3},
    {ExprComp::Min, "min", 2, yes, yes, 3},
    {ExprComp::Minus, "-", 2, yes, no, 1},
    {ExprComp::Mod, "mod", 2, yes, no, 3},
    {ExprComp::NotEqual, "!=", 2, yes, yes, 10},
    {ExprComp::Not, "!", 1, yes, no, 8},
    {ExprComp::Constant, "", 0, no, no, 3},
    {ExprComp::Or, "or", 2, yes, yes, 16},
    {ExprComp::Plus, "+", 2, yes, yes, 1},
    {ExprComp::Power, "^", 2, yes, no, 39},
    {ExprComp::Square, "^2", 1, no, no, 2},
    {ExprComp::Cube, "^3", 1, no, no, 4},
    {ExprComp::Fourth, "^", 1, no, no, 4},
    {ExprComp::Real, "real", 1, yes, no, 0},
    {ExprComp::Round, "round", 1, yes, no, 4},
    {ExprComp::Sec, "sec", 1, yes, no, 7},
    {ExprComp::Sech, "sech", 1, yes, no, 19},
    {ExprComp::Sign, "sign", 1, yes, no, 3},
    {ExprComp::Sin, "sin", 1, yes, no, 3},
    {ExprComp::Sinh, "sinh", 1, yes, no, 16},
    {ExprComp::Sqrt, "sqrt", 1, yes, no, 12},
    {ExprComp::Tan, "tan", 1, yes, no, 3},
    {ExprComp::Tanh, "tanh", 1, yes, no, 64},
    {ExprComp::Times, "*", 2, yes, yes, 1},
    {ExprComp::UnaryMinus, "U-", 1, yes, no, 1},
    {ExprComp::UnaryPlus, "U+", 1, yes, no, 0},
};

/// The row of a kind; null for a number that is no kind.
const KindInfo* infoOf(int kind);

/// A number with 20 digits, as far as it has them, and a decimal point whatever the locale.
std::string constantText(double value);

} // namespace qxcompiler
