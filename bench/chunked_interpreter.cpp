// SPDX-License-Identifier: LicenseRef-qxkernel
#include "chunked_interpreter.hpp"

#include <algorithm>
#include <cmath>
#include <immintrin.h>
#include <sleef.h>
#include <sstream>
#include <stdexcept>

namespace {

// Compiled for the machine it runs on. The lane functions are those that the library under test calls.
#ifdef __AVX512F__
using Lanes = __m512d;
#define QX_LANES(name) Sleef_finz_##name##d8_u10avx512f
Lanes load(const double* p) { return _mm512_loadu_pd(p); }
void store(double* p, Lanes v) { _mm512_storeu_pd(p, v); }
#else
using Lanes = __m256d;
#define QX_LANES(name) Sleef_finz_##name##d4_u10avx2
Lanes load(const double* p) { return _mm256_loadu_pd(p); }
void store(double* p, Lanes v) { _mm256_storeu_pd(p, v); }
#endif
constexpr std::size_t width = sizeof(Lanes) / sizeof(double);

template <class F>
void lanes(double* out, const double* x, std::size_t n, F&& f)
{
    std::size_t i = 0;
    for (; i + width <= n; i += width)
        store(out + i, f(load(x + i)));
    if (i < n) {
        double tail[width] = {};
        std::copy(x + i, x + n, tail);
        store(tail, f(load(tail)));
        std::copy(tail, tail + (n - i), out + i);
    }
}

template <class F>
void each(double* out, const double* x, const double* y, double cx, double cy, std::size_t n, F&& f)
{
    if (x && y)
        for (std::size_t i = 0; i < n; ++i)
            out[i] = f(x[i], y[i]);
    else if (x)
        for (std::size_t i = 0; i < n; ++i)
            out[i] = f(x[i], cy);
    else
        for (std::size_t i = 0; i < n; ++i)
            out[i] = f(cx, y[i]);
}

} // namespace

ChunkedInterpreter::ChunkedInterpreter(const std::string& postfix, const std::map<std::string, const double*>& variables,
                                       std::size_t offset)
    : offset_(offset)
{
    static const std::map<std::string, Code> binary = {{"+", Code::Add}, {"-", Code::Sub},     {"*", Code::Mul},
                                                       {"/", Code::Div}, {"^", Code::Pow}, {">", Code::Greater}};
    static const std::map<std::string, Code> unary = {{"sin", Code::Sin},   {"cos", Code::Cos}, {"exp", Code::Exp},
                                                      {"sqrt", Code::Sqrt}, {"log", Code::Log}, {"abs", Code::Abs}};
    std::vector<Operand> stack;
    int used = 0;
    std::istringstream tokens(postfix);
    for (std::string token; tokens >> token;) {
        if (const auto v = variables.find(token); v != variables.end()) {
            stack.push_back({v->second, -1, 0});
            continue;
        }
        const auto one = unary.find(token);
        const auto two = binary.find(token);
        if (one == unary.end() && two == binary.end()) {
            stack.push_back({nullptr, -1, std::stod(token)});
            continue;
        }
        Op op{};
        if (two != binary.end()) {
            op.code = two->second;
            op.b = stack.back();
            stack.pop_back();
            const bool constant = !op.b.variable && op.b.reg < 0;
            if (op.code == Code::Pow && constant && op.b.constant == 2)
                op.code = Code::Square;
            else if (op.code == Code::Pow && constant && op.b.constant == 3)
                op.code = Code::Cube;
            else if (op.code == Code::Pow && constant && op.b.constant == 4)
                op.code = Code::Fourth;
        } else {
            op.code = one->second;
            op.b = {nullptr, -1, 0};
        }
        op.a = stack.back();
        stack.pop_back();
        // Registers are a stack: the result takes the lowest one that an operand held, or a new one.
        int out = -1;
        for (const Operand& o : {op.a, op.b})
            if (!o.variable && o.reg >= 0)
                out = out < 0 ? o.reg : std::min(out, o.reg);
        if (out < 0) {
            out = 0;
            for (const Operand& o : stack)
                if (!o.variable)
                    out = std::max(out, o.reg + 1);
        }
        op.out = out;
        used = std::max(used, out + 1);
        ops_.push_back(op);
        stack.push_back({nullptr, out, 0});
    }
    if (stack.size() != 1 || ops_.empty())
        throw std::invalid_argument("not a postfix formula: " + postfix);
    registers_.resize(static_cast<std::size_t>(used) * chunk + offset_);
}

void ChunkedInterpreter::run(double* result, std::size_t n)
{
    double* const registers = registers_.data() + offset_;
    for (std::size_t from = 0; from < n; from += chunk) {
        const std::size_t count = std::min(chunk, n - from);
        const auto data = [&](const Operand& o) -> const double* {
            return o.variable ? o.variable + from : o.reg >= 0 ? registers + static_cast<std::size_t>(o.reg) * chunk : nullptr;
        };
        for (const Op& op : ops_) {
            double* const out = &op == &ops_.back() ? result + from : registers + static_cast<std::size_t>(op.out) * chunk;
            const double* const x = data(op.a);
            const double* const y = data(op.b);
            const double cx = op.a.constant, cy = op.b.constant;
            switch (op.code) {
            case Code::Add: each(out, x, y, cx, cy, count, [](double a, double b) { return a + b; }); break;
            case Code::Sub: each(out, x, y, cx, cy, count, [](double a, double b) { return a - b; }); break;
            case Code::Mul: each(out, x, y, cx, cy, count, [](double a, double b) { return a * b; }); break;
            case Code::Div: each(out, x, y, cx, cy, count, [](double a, double b) { return a / b; }); break;
            case Code::Pow: each(out, x, y, cx, cy, count, [](double a, double b) { return std::pow(a, b); }); break;
            case Code::Greater: each(out, x, y, cx, cy, count, [](double a, double b) { return a > b ? 1.0 : 0.0; }); break;
            case Code::Square: each(out, x, nullptr, 0, 0, count, [](double a, double) { return a * a; }); break;
            case Code::Cube: each(out, x, nullptr, 0, 0, count, [](double a, double) { return a * a * a; }); break;
            case Code::Fourth: each(out, x, nullptr, 0, 0, count, [](double a, double) { return (a * a) * (a * a); }); break;
            case Code::Sqrt: each(out, x, nullptr, 0, 0, count, [](double a, double) { return std::sqrt(a); }); break;
            case Code::Abs: each(out, x, nullptr, 0, 0, count, [](double a, double) { return std::fabs(a); }); break;
            case Code::Sin: lanes(out, x, count, [](Lanes v) { return QX_LANES(sin)(v); }); break;
            case Code::Cos: lanes(out, x, count, [](Lanes v) { return QX_LANES(cos)(v); }); break;
            case Code::Exp: lanes(out, x, count, [](Lanes v) { return QX_LANES(exp)(v); }); break;
            case Code::Log: lanes(out, x, count, [](Lanes v) { return QX_LANES(log)(v); }); break;
            }
        }
    }
}
