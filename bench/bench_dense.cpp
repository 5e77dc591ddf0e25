// SPDX-License-Identifier: LicenseRef-qxkernel
// The LAPACK front ends against the routines called directly with work arrays made beforehand, at n = 4, where a call's
// overhead shows, and at n = 500, where it must not.
#include "arrayutil.hpp"
#include "harness.hpp"

#include <random>
#include <string>

namespace {

using cplx = std::complex<double>;

extern "C" {
void dgesv_(const int*, const int*, double*, const int*, int*, double*, const int*, int*);
void zgesv_(const int*, const int*, cplx*, const int*, int*, cplx*, const int*, int*);
void dpotrf_(const char*, const int*, double*, const int*, int*, std::size_t);
void dgeqrf_(const int*, const int*, double*, const int*, double*, double*, const int*, int*);
void dgesvd_(const char*, const char*, const int*, const int*, double*, const int*, double*, double*, const int*,
             double*, const int*, double*, const int*, int*, std::size_t, std::size_t);
void dgeev_(const char*, const char*, const int*, double*, const int*, double*, double*, double*, const int*, double*,
            const int*, double*, const int*, int*, std::size_t, std::size_t);
void dggev_(const char*, const char*, const int*, double*, const int*, double*, const int*, double*, double*, double*,
            double*, const int*, double*, const int*, double*, const int*, int*, std::size_t, std::size_t);
void dgemv_(const char*, const int*, const int*, const double*, const double*, const int*, const double*, const int*,
            const double*, double*, const int*, std::size_t);
}

template <class T>
T number(std::mt19937& g)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    if constexpr (std::is_same_v<T, double>)
        return u(g);
    else
        return {u(g), u(g)};
}

/// Random, with a dominant diagonal.
template <class T>
Array<T, 2> matrix(unsigned long n)
{
    std::mt19937 g(7);
    Array<T, 2> A(n, n);
    for (T& a : A)
        a = number<T>(g);
    for (unsigned long i = 0; i < n; ++i)
        A(i, i) += 2.0 * double(n);
    return A;
}

template <class T, int N>
double difference(const Array<T, N>& a, const Array<T, N>& b)
{
    double d = 0.0;
    for (unsigned long i = 0; i < a.size(); ++i)
        d = std::max(d, std::abs(a[i] - b[i]));
    return d;
}

template <class T, class Gesv>
void solve(const std::string& name, unsigned long size, double goal, Gesv gesv)
{
    const int n = int(size), one = 1;
    int info = 0;
    const Array<T, 2> A = matrix<T>(size);
    Array<T, 2> a = A, direct = A;
    Array<T, 1> b(size), x(size), y(size);
    b = T(1);
    Array<int, 1> ipiv(size);
    BENCH("front ends/" + name + " n=" + std::to_string(n))
        .ours([&] {
            a = A;
            x = b;
            qxarray::linsolv(a, x, 3);
        })
        .peer("direct", [&] {
            direct = A;
            y = b;
            gesv(&n, &one, direct.data(), &n, ipiv.data(), y.data(), &n, &info);
        })
        .check([&] { return difference(x, y); }, 0.0)
        .atMost(goal);
}

/// A routine with a work array: ours and direct on copies of A, compared by what they leave in a result vector.
template <class Ours, class Direct>
void withWork(const std::string& name, unsigned long size, double goal, Ours ours, Direct direct)
{
    const Array<double, 2> A = matrix<double>(size);
    Array<double, 2> a = A, b = A;
    Array<double, 1> x(size), y(size), work(1);
    direct(b, y, work, -1);
    work.resize((unsigned long)work[0]);
    BENCH("front ends/" + name + " n=" + std::to_string(size))
        .ours([&] {
            a = A;
            ours(a, x);
        })
        .peer("direct", [&] {
            b = A;
            direct(b, y, work, int(work.size()));
        })
        .check([&] { return difference(x, y); }, 0.0)
        .atMost(goal);
}

void sizes(unsigned long n, double goal)
{
    solve<double>("dgesv", n, goal, dgesv_);
    solve<cplx>("zgesv", n, goal, zgesv_);

    const int order = int(n), one = 1;
    int info = 0;
    withWork(
        "dgeqrf", n, goal, [](auto& a, auto& x) { qxarray::qr(a, x, 3); },
        [&](auto& a, auto& x, auto& work, int lwork) {
            dgeqrf_(&order, &order, a.data(), &order, x.data(), work.data(), &lwork, &info);
        });
    withWork(
        "dgesvd", n, goal, [](auto& a, auto& x) { qxarray::svd(a, x, 3); },
        [&](auto& a, auto& x, auto& work, int lwork) {
            dgesvd_("N", "N", &order, &order, a.data(), &order, x.data(), nullptr, &one, nullptr, &one, work.data(),
                    &lwork, &info, 1, 1);
        });
    Array<double, 1> im(n), im2(n), beta(n), beta2(n);
    withWork(
        "dgeev", n, goal, [&](auto& a, auto& x) { qxarray::eig(a, x, im, 3); },
        [&](auto& a, auto& x, auto& work, int lwork) {
            dgeev_("N", "N", &order, a.data(), &order, x.data(), im2.data(), nullptr, &one, nullptr, &one, work.data(),
                   &lwork, &info, 1, 1);
        });
    const Array<double, 2> B = matrix<double>(n);
    Array<double, 2> b = B, b2 = B;
    withWork(
        "dggev", n, goal,
        [&](auto& a, auto& x) {
            b = B;
            b[1] = 0.5;
            qxarray::eig(a, b, x, im, beta, 3);
        },
        [&](auto& a, auto& x, auto& work, int lwork) {
            b2 = B;
            b2[1] = 0.5;
            dggev_("N", "N", &order, a.data(), &order, b2.data(), &order, x.data(), im2.data(), beta2.data(), nullptr,
                   &one, nullptr, &one, work.data(), &lwork, &info, 1, 1);
        });

    const Array<double, 2> S = [&] {
        Array<double, 2> s = matrix<double>(n);
        for (unsigned long j = 0; j < n; ++j)
            for (unsigned long i = 0; i < j; ++i)
                s(j, i) = s(i, j);
        return s;
    }();
    Array<double, 2> c = S, direct = S;
    BENCH("front ends/dpotrf n=" + std::to_string(n))
        .ours([&] {
            c = S;
            qxarray::chol(c, 1);
        })
        .peer("direct", [&] {
            direct = S;
            dpotrf_("U", &order, direct.data(), &order, &info, 1);
        })
        .check([&] { return difference(c, direct); }, 0.0)
        .atMost(goal);

    Array<double, 1> x(n), y(n), z(n);
    x = 1.0;
    y = z = 0.0;
    const double unit = 1.0;
    BENCH("front ends/dgemv n=" + std::to_string(n))
        .ours([&] {
            y = 0.0;
            qxarray::yPlusAMulx(y, S, x);
        })
        .peer("direct", [&] {
            z = 0.0;
            dgemv_("N", &order, &order, &unit, S.data(), &order, x.data(), &one, &unit, z.data(), &one, 1);
        })
        .check([&] { return difference(y, z); }, 0.0)
        .atMost(goal);
}

} // namespace

void qxbench::benchmarks()
{
    sizes(4, 1.3);
    sizes(sized(500, 50), 1.02);
}
