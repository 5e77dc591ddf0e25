// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <random>
#include <string>
#include <utility>

namespace qxtest {

/// Random expressions in x, y and z, the same for the same seed. Divisors and bases of powers may vanish.
class RandomText
{
public:
    explicit RandomText(unsigned seed) : random_(seed) {}

    std::string make(int depth)
    {
        if (depth == 0 || pick(6) == 0)
            return pick(3) == 0 ? std::to_string(1 + pick(4)) : std::string(1, static_cast<char>('x' + pick(3)));
        const std::string a = make(depth - 1);
        switch (pick(10)) {
        case 0:
        case 1: return "(" + a + "+" + make(depth - 1) + ")";
        case 2: return "(" + a + "-" + make(depth - 1) + ")";
        case 3:
        case 4: return "(" + a + "*" + make(depth - 1) + ")";
        case 5: return "(" + a + "/" + make(depth - 1) + ")";
        case 6: return "(" + a + "^" + std::to_string(2 + pick(2)) + ")";
        case 7: return "(-" + a + ")";
        case 8: return "sin(" + a + ")";
        default: return "exp(-" + a + ")";
        }
    }

    /// A formula in x, y, z and w rich in parts that cancel, and the same with the operands of sums and products shuffled.
    std::pair<std::string, std::string> makeCancelling(int depth)
    {
        if (depth == 0 || pick(6) == 0) {
            const std::string leaf = pick(3) == 0 ? std::to_string(1 + pick(4)) : std::string(1, "xyzw"[pick(4)]);
            return {leaf, leaf};
        }
        const auto a = makeCancelling(depth - 1);
        const auto around = [&](const std::string& before, const std::string& after) {
            return std::make_pair(before + a.first + after, before + a.second + after);
        };
        const auto joined = [&](const std::string& sign, bool commutes) {
            const auto b = makeCancelling(depth - 1);
            const bool swap = commutes && pick(2) == 0;
            return std::make_pair("(" + a.first + sign + b.first + ")",
                                  "(" + (swap ? b.second + sign + a.second : a.second + sign + b.second) + ")");
        };
        switch (pick(15)) {
        case 0:
        case 1: return joined("+", true);
        case 2: return joined("-", false);
        case 3:
        case 4: return joined("*", true);
        case 5: return joined("/", false);
        case 6: return around("(", "^" + std::to_string(2 + pick(2)) + ")");
        case 7: return around("(-", ")");
        case 8: return around("sin(", ")");
        case 9: return around("exp(-", ")");
        case 10: {
            const std::string c(1, "xyzw"[pick(4)]);
            return around("(" + c + "+", "-" + c + ")");
        }
        case 11: {
            const std::string c = makeCancelling(depth - 1).first;
            return around("(", "-(" + c + "-" + c + "))");
        }
        case 12: return around("(", "^(-" + std::to_string(1 + pick(3)) + "))");
        case 13: return around("sqrt(", ")");
        default: return around("(2+cos(", "))");
        }
    }

private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    std::mt19937 random_;
};

} // namespace qxtest
