// SPDX-License-Identifier: LicenseRef-qxkernel
// Products with vectors and relaxation sweeps.

#include "externalsparse.hpp"
#include "harness.hpp"
#include "sparse_workloads.hpp"

using namespace qxbench;

namespace {

double difference(const Matrix<1>& y, const Eigen::VectorXd& e)
{
    double worst = 0.0, size = 1e-300;
    for (Index i = 0; i < y.size(); ++i) {
        worst = std::max(worst, std::abs(y[i].real() - e[long(i)]));
        size = std::max(size, std::abs(e[long(i)]));
    }
    return worst / size;
}

double difference(const Matrix<1>& y, const std::vector<double>& e)
{
    double worst = 0.0;
    for (Index i = 0; i < y.size(); ++i)
        worst = std::max(worst, std::abs(y[i].real() - e[i]));
    return worst;
}

void products(const Triplets& t, const Sparse& A)
{
    const EigenMatrix<int> E = toEigen<int>(A);
    const double bytes = 16.0 * double(A.getNnz()) + 32.0 * double(t.n);
    const Index n = t.n;
    Matrix<1> x(n, true), y(n, true), y1(n, true);
    Eigen::VectorXd ex(n), ey(n);
    for (Index i = 0; i < n; ++i)
        ex[long(i)] = x.getdArr()[i] = 1.0 + double(i % 10);
    for (Trans_t trans : {NoTrans, Trans}) {
        const std::string form = trans == NoTrans ? "y + A x" : "y + A' x";
        const auto multiply = [&](int threads, Matrix<1>& to) {
            return [&, threads] { withThreads(threads, [&] { yPlusAMulx(to, A, x, trans); }); };
        };
        const auto fresh = [&] {
            y = y1 = 0.0;
            ey.setZero();
        };
        const auto eigen = [&] {
            if (trans == NoTrans)
                ey.noalias() += E * ex;
            else
                ey.noalias() += E.transpose() * ex;
        };
        const auto compare = [&] {
            fresh();
            multiply(1, y)();
            eigen();
            return difference(y, ey);
        };
        BENCH(form + ", 1 thread/" + t.name)
            .ours(multiply(1, y)).peer("Eigen, int indices", eigen).check(compare, 1e-13).bytes(bytes);
        BENCH(form + ", 2 threads/" + t.name)
            .ours(multiply(2, y1))
            .peer("1 thread", multiply(1, y))
            .check([&] {
                fresh();
                multiply(1, y)();
                multiply(2, y1)();
                double worst = 0.0;
                for (Index i = 0; i < n; ++i)
                    worst = std::max(worst, std::abs(y[i].real() - y1[i].real()));
                return worst;
            }, 0.0)
            .peer("Eigen, int indices, 2 threads", [&] {
                Eigen::setNbThreads(2);
                eigen();
                Eigen::setNbThreads(1);
            })
            .bytes(bytes)
            .threads(2);
        ExternalSparse::useBuiltIn(true);
        BENCH(form + ", 32-bit indices, 1 thread/" + t.name)
            .ours(multiply(1, y)).peer("Eigen, int indices", eigen).check(compare, 1e-13).atMost(1.0)
            .bytes(bytes - 4.0 * double(A.getNnz()));
        ExternalSparse::useBuiltIn(false);
    }
}

/// The sweep as one writes it by hand on the same arrays.
void handSweep(const Sparse& A, double* r, double* x, double omega)
{
    const Index *colPtr = A.getColPtr(), *row = A.getRow(), *diag = A.getDiag();
    const double* val = A.getDoubleVal();
    for (Index j = 0; j < A.getN(); ++j) {
        const double t = -omega * r[j] / val[diag[j]];
        r[j] = t;
        x[j] += t;
        for (Index p = diag[j] + 1; p < colPtr[j + 1]; ++p)
            r[row[p]] += val[p] * t;
    }
}

void sweeps(const Triplets& t, Sparse& A)
{
    A.format(FormSortedDiag, true);
    Matrix<1> r(t.n, true), x(t.n, true);
    std::vector<double> rh(t.n), xh(t.n);
    const auto fresh = [&] {
        for (Index i = 0; i < t.n; ++i) {
            rh[i] = r.getdArr()[i] = 1.0 + double(i % 10);
            xh[i] = x.getdArr()[i] = 0.0;
        }
    };
    const auto ours = [&] { withThreads(1, [&] { SORIt(A, r, x, 1.2, false); }); };
    const auto hand = [&] { handSweep(A, rh.data(), xh.data(), 1.2); };
    fresh();
    BENCH("SOR sweep, 1 thread/" + t.name)
        .ours(ours)
        .peer("hand-written loop", hand)
        .check([&] {
            fresh();
            ours();
            hand();
            return std::max(difference(x, xh), difference(r, rh));
        }, 0.0)
        .atMost(1.05)
        .bytes(8.0 * double(A.getNnz()) + 56.0 * double(t.n));
    Matrix<1> r2 = r, x2 = x;
    BENCH("SOR sweep, 2 threads/" + t.name)
        .ours([&] { withThreads(2, [&] { SORIt(A, r2, x2, 1.2, false); }); })
        .peer("1 thread", ours)
        .threads(2);
}

} // namespace

void qxbench::benchmarks()
{
    introducePeers();
    for (const auto& workload : {poisson2d, poisson3d, hex27, randomColumns}) {
        const Triplets t = workload();
        Sparse A = assemble(t);
        A.format(FormSorted, false);
        products(t, A);
        sweeps(t, A);
    }
}
