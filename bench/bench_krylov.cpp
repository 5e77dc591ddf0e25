// SPDX-License-Identifier: LicenseRef-qxkernel
// GMRES against Eigen's on the same matrix and against the products alone; the QZ iteration against LAPACK's driver.
#include "arrayutil.hpp"
#include "harness.hpp"
#include "krylov.hpp"
#include "qzmod.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <random>
#include <string>
#ifdef QX_HAVE_EIGEN
#include <Eigen/Dense>
#include <unsupported/Eigen/IterativeSolvers>
#endif

extern "C" void dggev_(const char*, const char*, const int*, double*, const int*, double*, const int*, double*, double*, double*,
                       double*, const int*, double*, const int*, double*, const int*, int*, std::size_t, std::size_t);

namespace {

using cplx = std::complex<double>;

template <class T>
T number(std::mt19937& g)
{
    std::normal_distribution<double> u;
    if constexpr (std::is_same_v<T, double>)
        return u(g);
    else
        return {u(g), u(g)};
}

/// Eigenvalues in a disc of radius 1 around a centre near its edge: dozens of steps to convergence.
template <class T>
Array<T, 2> slowMatrix(unsigned long n)
{
    std::mt19937 g(3);
    Array<T, 2> A(n, n);
    for (T& a : A)
        a = number<T>(g) / std::sqrt(double(n) * (std::is_same_v<T, cplx> ? 2.0 : 1.0));
    for (unsigned long i = 0; i < n; ++i)
        A(i, i) += 1.3;
    return A;
}

template <class T>
void gmresCase(const std::string& type, unsigned long n, double goalOfProducts)
{
    constexpr int restart = 50;
    constexpr int steps = 50; // one cycle: the same work for all
    const auto A = boost::make_shared<Array<T, 2>>(slowMatrix<T>(n));
    const auto b = boost::make_shared<Array<T, 1>>(n);
    std::mt19937 g(4);
    for (T& v : *b)
        v = number<T>(g);
    const Matrix<2> matrix(A);
    const Matrix<1> rhs(b);
    Matrix<1> x(n, std::is_same_v<T, double>);
    const auto ours = [&] {
        x = cplx(0.0);
        double flops = 0.0;
        gmres(matrix, rhs, x, 1e-300, restart, 1.0, steps, flops);
    };
    Array<T, 1> v(n), w(n);
    v = T(1);
    const auto products = [&] {
        for (int k = 0; k < steps + 2; ++k) {
            w = T(0);
            qxarray::yPlusAMulx(w, *A, v);
        }
    };
    const std::string name = "gmres/" + type + " n=" + std::to_string(n);
#ifdef QX_HAVE_EIGEN
    using EigenMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;
    using EigenVector = Eigen::Matrix<T, Eigen::Dynamic, 1>;
    const EigenMatrix M = Eigen::Map<const EigenMatrix>(A->data(), Eigen::Index(n), Eigen::Index(n));
    const EigenVector r = Eigen::Map<const EigenVector>(b->data(), Eigen::Index(n));
    EigenVector y;
    const auto eigen = [&] {
        Eigen::GMRES<EigenMatrix, Eigen::IdentityPreconditioner> solver;
        solver.compute(M);
        solver.set_restart(restart);
        solver.setMaxIterations(steps);
        solver.setTolerance(1e-300);
        y = solver.solve(r);
    };
    BENCH(name).ours(ours)
        .peer("products alone", products).atMost(goalOfProducts)
        .peer("Eigen", eigen).check([&] { // residuals: the peer's complex form makes a few steps more than it is told
            EigenVector z(static_cast<Eigen::Index>(n));
            for (unsigned long i = 0; i < n; ++i)
                if constexpr (std::is_same_v<T, double>)
                    z[Eigen::Index(i)] = x[i].real();
                else
                    z[Eigen::Index(i)] = x[i];
            return std::max(0.0, (M * z - r).norm() - (M * y - r).norm()) / r.norm();
        }, 1e-6).atMost(n == 300 ? 0.0 : 1.0).fastest();
#else
    BENCH(name).ours(ours).peer("products alone", products).atMost(goalOfProducts).fastest();
#endif
}

void pencil(const char* job, int n)
{
    const auto size = static_cast<unsigned long>(n);
    std::mt19937 g(6);
    Array<double, 2> A(size, size), B(size, size), a, b, vl(size, size), vr(size, size);
    for (double& v : A)
        v = number<double>(g);
    for (double& v : B)
        v = number<double>(g);
    std::vector<double> re(size), im(size), beta(size), re2(size), im2(size), beta2(size), work(50 * size);
    const int lwork = int(work.size());
    int info = 0;
    BENCH(std::string("dggev_mod/") + (*job == 'V' ? "vectors" : "values") + " n=" + std::to_string(n))
        .ours([&] {
            a = A, b = B;
            dggev_mod(job, job, &n, a.data(), &n, b.data(), &n, re.data(), im.data(), beta.data(), vl.data(), &n, vr.data(), &n,
                      work.data(), &lwork, &info, 1.0);
        })
        .peer("LAPACK dggev", [&] {
            a = A, b = B;
            dggev_(job, job, &n, a.data(), &n, b.data(), &n, re2.data(), im2.data(), beta2.data(), vl.data(), &n, vr.data(), &n,
                   work.data(), &lwork, &info, 1, 1);
        })
        .check([&] { // the sums of beta and of alpha's parts, which no order of eigenvalues changes
            double d = 0.0, size2 = 0.0;
            for (std::size_t i = 0; i < size; ++i) {
                d += re[i] / beta[i] - re2[i] / beta2[i];
                size2 += std::fabs(re2[i] / beta2[i]);
            }
            return std::fabs(d) / size2;
        }, 1e-9).atMost(1.2).fastest();
}

} // namespace

void qxbench::benchmarks()
{
    for (const unsigned long n : {300ul, sized(2000ul, 400ul)}) {
        const double goal = n == 300 ? 1.3 : 1.08;
        gmresCase<double>("real", n, goal);
        gmresCase<cplx>("complex", n, goal);
    }
    for (const int n : {sized(200, 40), sized(500, 60)}) {
        pencil("N", n);
        pencil("V", n);
    }
}
