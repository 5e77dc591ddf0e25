// SPDX-License-Identifier: LicenseRef-qxkernel
// Function objects on blocks of 1000 points: against a plain loop over the C library's function, and against the vector
// library called directly with the widest unit of this machine. Operations on values against the bare loop.

#include "harness.hpp"

#include "evalfun_binary.hpp"
#include "evalfun_trig.hpp"
#include "evalrep.hpp"
#include "funfactory.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>
#include <immintrin.h>

namespace {

constexpr std::size_t n = 1000;

// The vector library by its own names: its header shows the wide functions only to sources compiled for that unit.
#define QX_DIRECT(name)                                                                            \
    extern "C" __m512d Sleef_finz_##name##d8_u10avx512f(__m512d);                                  \
    extern "C" __m256d Sleef_finz_##name##d4_u10avx2(__m256d);                                     \
    __attribute__((target("avx512f"))) void wide_##name(double* y, const double* x)                \
    {                                                                                              \
        for (std::size_t i = 0; i < n; i += 8)                                                     \
            _mm512_storeu_pd(y + i, Sleef_finz_##name##d8_u10avx512f(_mm512_loadu_pd(x + i)));     \
    }                                                                                              \
    __attribute__((target("avx2,fma"))) void narrow_##name(double* y, const double* x)             \
    {                                                                                              \
        for (std::size_t i = 0; i < n; i += 4)                                                     \
            _mm256_storeu_pd(y + i, Sleef_finz_##name##d4_u10avx2(_mm256_loadu_pd(x + i)));        \
    }
QX_DIRECT(sin) QX_DIRECT(cos) QX_DIRECT(tan) QX_DIRECT(exp) QX_DIRECT(log) QX_DIRECT(atan) QX_DIRECT(sinh) QX_DIRECT(tanh)
QX_DIRECT(erf) QX_DIRECT(asin)
#undef QX_DIRECT

using Direct = void (*)(double*, const double*);
Direct widest(Direct wide, Direct narrow)
{
    return __builtin_cpu_supports("avx512f") ? wide : __builtin_cpu_supports("avx2") ? narrow : nullptr;
}

double worst(const Array<double, 1>& a, const Array<double, 1>& b)
{
    double d = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        d = std::max(d, std::fabs(a[i] - b[i]) / std::max(std::fabs(b[i]), 1e-300));
    return d;
}

FunObjPtr functionNamed(const std::string& name)
{
    std::vector<FunObjPtr> all;
    makeStandardFunctions(all);
    return *std::find_if(all.begin(), all.end(), [&](const FunObjPtr& f) { return f->getName() == name; });
}

void unaryCase(const char* name, double (*plain)(double), Direct direct)
{
    const FunObjPtr f = functionNamed(name);
    Array<double, 1> x(n), peer(n), third(n);
    const auto y = boost::make_shared<Array<double, 1>>(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = 0.01 + 0.00095 * double(i);
    unsigned bits = 0;

    qxbench::Case c(std::string("function/") + name);
    c.ours([&] { f->unaryInto(y->data(), x.data(), 0, n, bits); })
        .peer("libm", [&] {
            for (std::size_t i = 0; i < n; ++i)
                peer[i] = plain(x[i]);
        })
        .check([&] { return worst(*y, peer); }, 4e-16)
        .atMost(1.0)
        .items(n, "points");
    if (direct != nullptr)
        c.peer("SLEEF", [&] { direct(third.data(), x.data()); }).check([&] { return worst(*y, third); }, 0.0).atMost(1.1);
}

/// Operations on values of 1000 points against the bare loop with a result array of its own.
void valueCases()
{
    const auto allocator = boost::make_shared<SerialArrayAllocator>(n, 0);
    const auto value = [&](double first) {
        ValRepPtr v = ValRep::make(allocator);
        v->reset(false, false, n);
        DArrayPtr a;
        v->addDArray(a);
        for (std::size_t i = 0; i < n; ++i)
            (*a)[i] = first + 0.001 * double(i);
        v->setEvaluated();
        return v;
    };
    const ValRepPtr x = value(1.0), y = value(2.0);
    Array<double, 1> out(n);
    const PlusFun plus;
    const MultFun mult;
    double *a = x->getDoubleIterator(0), *b = y->getDoubleIterator(0);

    BENCH("value/x+y")
        .ours([&] {
            ValRepPtr p = x, q = y;
            qxbench::keep(ValRep::applyOp(plus, p, q, 4));
        })
        .peer("loop", [&] {
            for (std::size_t i = 0; i < n; ++i)
                out[i] = a[i] + b[i];
            qxbench::keep(out[0]);
        })
        .items(n, "points");
    BENCH("value/(x+y)*y")
        .ours([&] {
            ValRepPtr p = x, q = y, q2 = y;
            ValRepPtr s = ValRep::applyOp(plus, p, q, 4);
            qxbench::keep(ValRep::applyOp(mult, s, q2, 4));
        })
        .peer("two loops", [&] {
            for (std::size_t i = 0; i < n; ++i)
                out[i] = a[i] + b[i];
            qxbench::keep(out[0]);
            for (std::size_t i = 0; i < n; ++i)
                out[i] *= b[i];
            qxbench::keep(out[0]);
        })
        .items(n, "points");
}

} // namespace

void qxbench::benchmarks()
{
#define QX_CASE(name) unaryCase(#name, std::name, widest(wide_##name, narrow_##name));
    QX_CASE(sin) QX_CASE(cos) QX_CASE(tan) QX_CASE(exp) QX_CASE(log) QX_CASE(atan) QX_CASE(sinh) QX_CASE(tanh)
    QX_CASE(erf) QX_CASE(asin)
#undef QX_CASE
    for (const auto& [name, plain] : {std::pair<const char*, double (*)(double)>{"sqrt", std::sqrt},
                                      {"log10", std::log10}, {"acos", std::acos}, {"cosh", std::cosh}, {"floor", std::floor}})
        unaryCase(name, plain, nullptr);
    valueCases();
}
