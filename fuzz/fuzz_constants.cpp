// SPDX-License-Identifier: LicenseRef-qxkernel
// Arithmetic of exact-or-floating numbers, chosen by bytes: invariants of each result, and values near those of doubles.
#include "exprimpl.hpp"
#include "qxexception.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Number = ExprImpl::Number;

void check(bool holds)
{
    if (!holds)
        std::abort();
}

void checkInvariant(const Number& n)
{
    const auto isIntegral = [](double x) { return x == std::floor(x); };
    switch (n.type) {
    case Number::Integer: check(n.den == 1.0 && isIntegral(n.num)); break; // above 1e15 too: -(1e20) is a quotient by 1
    case Number::Real: check(n.den == 1.0 || std::isnan(n.den)); break;
    case Number::Rational:
        check(!(n.den <= 0.0) && n.den != 1.0 && n.num != 0.0);
        if (std::isfinite(n.num) && std::isfinite(n.den))
            check(isIntegral(n.num) && isIntegral(n.den));
        break;
    default: std::abort();
    }
    check(!n.toString().empty());
    Number::eq(n, n);
}

/// Sums of such numbers have the value of those of doubles, to rounding.
bool isModerate(const Number& n) { return std::fabs(n.num) < 1e6 && n.den < 1e6; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::vector<Number> stack{Number(1), Number(2, 3)};
    for (std::size_t i = 0; i < size; ++i) {
        const Number a = stack[stack.size() - 1], b = stack[stack.size() - 2];
        try {
            Number result;
            switch (data[i] % 9) {
            case 0:
                result = a + b;
                if (isModerate(a) && isModerate(b))
                    check(std::fabs(result.toReal() - (a.toReal() + b.toReal())) <=
                          1e-14 * (std::fabs(a.toReal()) + std::fabs(b.toReal())));
                break;
            case 1: result = a - b; break;
            case 2: result = a * b; break;
            case 3: result = a / b; break;
            case 4: result = -a; break;
            case 5: result = Number::power(a, b); break;
            case 6: {
                double d = 0.0;
                if (size - i > sizeof d)
                    std::memcpy(&d, data + i + 1, sizeof d);
                i += sizeof d;
                result = Number(d);
                break;
            }
            case 7: result = Number(static_cast<int>(data[i]) - 128, i + 1 < size ? data[i + 1] : 7); break;
            default: result = Number(static_cast<int>(data[i]) * 7919); break;
            }
            if (result.type != Number::Rational || (std::isfinite(result.num) && std::isfinite(result.den)))
                checkInvariant(result);
            stack.push_back(result);
        } catch (const qxbase::Exception& e) {
            check(e.getId() == "Divide_by_zero" || e.getId() == "Power_of_negative");
        }
    }
    return 0;
}
