// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "host.hpp"

#include <random>
#include <string>

namespace qxtest {

/// Texts of random formulas of x and y, with functions that turn complex, fail and give zeros of both signs.
class RandomFormulas
{
public:
    explicit RandomFormulas(unsigned seed) : random_(seed) {}

    std::string operator()(int depth)
    {
        const auto pick = [this](int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); };
        if (depth == 0) {
            static const char* const leaves[] = {"x", "y", "x", "y", "3", "0.7", "2", "(-1.5)"};
            return leaves[pick(8)];
        }
        static const char* const functions[] = {"sqrt", "log",  "exp",  "sin",   "cos",  "tan",   "asin",  "acos", "abs",
                                                "real", "imag", "conj", "arg",   "sign", "atan",  "asinh", "atanh", "log10",
                                                "tanh", "cosh", "sinh", "log2",  "acosh", "acoth", "floor", "sec"};
        static const char* const operators[] = {"+", "-", "*", "/", "^", "*", "-"};
        static const char* const twos[] = {"min", "max", "atan2", "realdot"};
        switch (pick(8)) {
        case 0:
        case 1:
        case 2: return std::string(functions[pick(26)]) + '(' + (*this)(depth - 1) + ')';
        case 3: return "(-" + (*this)(depth - 1) + ')';
        case 4: {
            const std::string a = (*this)(depth - 1);
            return std::string(twos[pick(4)]) + '(' + a + ',' + (*this)(depth - 1) + ')';
        }
        default: {
            const std::string a = (*this)(depth - 1);
            return '(' + a + operators[pick(7)] + (*this)(depth - 1) + ')';
        }
        }
    }

private:
    std::mt19937 random_;
};

} // namespace qxtest
