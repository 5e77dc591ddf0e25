// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "aligned.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// The limit that evaluation is measured against: a register machine for real formulas, written by hand for one purpose.
///
/// A formula in postfix form becomes a list of operations; each is one pass over a chunk of 512 points, small enough for
/// the first-level cache, with constants as immediate operands and elementary functions from the vector math library. No
/// errors, no complex numbers, no shapes, no names at run time.
class ChunkedInterpreter
{
public:
    /// Tokens separated by blanks: variables, numbers, + - * / ^ > and the functions sin cos exp sqrt log abs. Whole
    /// powers 2, 3, 4 become products.
    ///
    /// Registers begin at a cache line, or `offset` doubles behind one: variables and results are the caller's to align.
    ChunkedInterpreter(const std::string& postfix, const std::map<std::string, const double*>& variables,
                       std::size_t offset = 0);

    /// result[i] for i < n.
    void run(double* result, std::size_t n);

    static constexpr std::size_t chunk = 512;

private:
    enum class Code { Add, Sub, Mul, Div, Pow, Greater, Square, Cube, Fourth, Sin, Cos, Exp, Sqrt, Log, Abs };
    struct Operand
    {
        const double* variable; // null: a register or a constant
        int reg;                // -1: a constant
        double constant;
    };
    struct Op
    {
        Code code;
        int out;
        Operand a, b;
    };

    std::vector<Op> ops_;
    qxbench::AlignedVector<double> registers_;
    std::size_t offset_;
};
