#pragma once

#include <random>
#include <string>

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

private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    std::mt19937 random_;
};

} // namespace qxtest
