// SPDX-License-Identifier: LicenseRef-qxkernel
// The QZ iteration with varied exceptional shifts: its parts, its agreement with LAPACK and with 50-digit eigenvalues, and
// the retry in eig.

#include "arrayutil.hpp"
#include "dense/qz_detail.hpp"
#include "dense/qzretry_detail.hpp"
#include "dense_values.hpp"
#include "qzmod.hpp"
#include "qxparallel.hpp"
#include "support/reference_lines.hpp"

#include <cstdio>
#include <unistd.h>

extern "C" {
void dggev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b, const int* ldb,
            double* alphar, double* alphai, double* beta, double* vl, const int* ldvl, double* vr, const int* ldvr,
            double* work, const int* lwork, int* info, std::size_t, std::size_t);
void dggevx_(const char* balanc, const char* jobvl, const char* jobvr, const char* sense, const int* n, double* a,
             const int* lda, double* b, const int* ldb, double* alphar, double* alphai, double* beta, double* vl,
             const int* ldvl, double* vr, const int* ldvr, int* ilo, int* ihi, double* lscale, double* rscale,
             double* abnrm, double* bbnrm, double* rconde, double* rcondv, double* work, const int* lwork, int* iwork,
             int* bwork, int* info, std::size_t, std::size_t, std::size_t, std::size_t);
}

using namespace densetest;

namespace {

using Dense = Array<double, 2>;
using Numbers = std::vector<double>;

struct Spectrum
{
    int info = 0, lwork = 0, ilo = 0, ihi = 0;
    double abnrm = 0.0, bbnrm = 0.0;
    Numbers alphar, alphai, beta, rconde, rcondv, lscale, rscale;
    Dense vl, vr;

    cplx alpha(std::size_t i) const { return {alphar[i], alphai[i]}; }
    std::size_t size() const { return beta.size(); }
};

Spectrum roomFor(unsigned long n)
{
    Spectrum s;
    for (Numbers* v : {&s.alphar, &s.alphai, &s.beta, &s.rconde, &s.rcondv, &s.lscale, &s.rscale})
        v->assign(n, -777.0);
    s.vl.resize(n, n);
    s.vr.resize(n, n);
    s.vl = s.vr = 0.0;
    return s;
}

enum class Maker { Lapack, Ours };

Spectrum dggev(Maker maker, const char* job, Dense A, Dense B, double shiftScale = 1.0)
{
    const int n = static_cast<int>(A.extent(0)), ld = std::max(1, n);
    Spectrum s = roomFor(A.extent(0));
    Numbers work(1);
    const auto call = [&](int lwork) {
        if (maker == Maker::Ours)
            dggev_mod(job, job, &n, A.data(), &ld, B.data(), &ld, s.alphar.data(), s.alphai.data(), s.beta.data(), s.vl.data(),
                      &ld, s.vr.data(), &ld, work.data(), &lwork, &s.info, shiftScale);
        else
            dggev_(job, job, &n, A.data(), &ld, B.data(), &ld, s.alphar.data(), s.alphai.data(), s.beta.data(), s.vl.data(),
                   &ld, s.vr.data(), &ld, work.data(), &lwork, &s.info, 1, 1);
    };
    call(-1);
    s.lwork = static_cast<int>(work[0]);
    work.resize(static_cast<std::size_t>(s.lwork));
    call(s.lwork);
    return s;
}

Spectrum dggevx(Maker maker, const char* balance, const char* job, const char* sense, Dense A, Dense B)
{
    const int n = static_cast<int>(A.extent(0)), ld = std::max(1, n);
    Spectrum s = roomFor(A.extent(0));
    Numbers work(1);
    std::vector<int> iwork(A.extent(0) + 6), bwork(A.extent(0));
    const auto call = [&](int lwork) {
        if (maker == Maker::Ours)
            dggevx_mod(balance, job, job, sense, &n, A.data(), &ld, B.data(), &ld, s.alphar.data(), s.alphai.data(),
                       s.beta.data(), s.vl.data(), &ld, s.vr.data(), &ld, &s.ilo, &s.ihi, s.lscale.data(), s.rscale.data(),
                       &s.abnrm, &s.bbnrm, s.rconde.data(), s.rcondv.data(), work.data(), &lwork, iwork.data(), bwork.data(),
                       &s.info, 1.0);
        else
            dggevx_(balance, job, job, sense, &n, A.data(), &ld, B.data(), &ld, s.alphar.data(), s.alphai.data(), s.beta.data(),
                    s.vl.data(), &ld, s.vr.data(), &ld, &s.ilo, &s.ihi, s.lscale.data(), s.rscale.data(), &s.abnrm, &s.bbnrm,
                    s.rconde.data(), s.rcondv.data(), work.data(), &lwork, iwork.data(), bwork.data(), &s.info, 1, 1, 1, 1);
    };
    call(-1);
    s.lwork = static_cast<int>(work[0]);
    work.resize(static_cast<std::size_t>(s.lwork));
    call(s.lwork);
    return s;
}

/// Chordal distance of alpha / beta and gamma / delta: a number between 0 and 1 that knows infinity.
double chordal(const cplx& alpha, double beta, const cplx& gamma, double delta)
{
    const double size = std::hypot(std::abs(alpha), beta) * std::hypot(std::abs(gamma), delta);
    return std::abs(alpha * delta - gamma * beta) / size;
}

/// Each of the one finds a partner of its own among the other: the largest distance of partners.
double distance(const Spectrum& s, const std::vector<std::pair<cplx, double>>& wanted)
{
    std::vector<bool> taken(wanted.size(), false);
    double worst = s.size() == wanted.size() ? 0.0 : infinity;
    for (std::size_t i = 0; i < s.size(); ++i) {
        std::size_t nearest = 0;
        double best = infinity;
        for (std::size_t j = 0; j < wanted.size(); ++j) {
            const double d = chordal(s.alpha(i), s.beta[i], wanted[j].first, wanted[j].second);
            if (!taken[j] && d < best) {
                best = d;
                nearest = j;
            }
        }
        taken[nearest] = true;
        worst = std::max(worst, best);
    }
    return worst;
}

double distance(const Spectrum& a, const Spectrum& b)
{
    std::vector<std::pair<cplx, double>> pairs;
    for (std::size_t i = 0; i < b.size(); ++i)
        pairs.emplace_back(b.alpha(i), b.beta[i]);
    return distance(a, pairs);
}

/// Largest |beta A v - alpha B v| over the vectors, of unit size each.
double vectorResidual(const Spectrum& s, const Dense& A, const Dense& B, bool left)
{
    const std::size_t n = s.size();
    const Dense& V = left ? s.vl : s.vr;
    double worst = 0.0;
    for (std::size_t j = 0; j < n; ++j) {
        const bool first = s.alphai[j] > 0.0, second = s.alphai[j] < 0.0;
        const auto v = [&](std::size_t i) {
            return first ? cplx(V(i, j), V(i, j + 1)) : second ? cplx(V(i, j - 1), -V(i, j)) : cplx(V(i, j));
        };
        for (std::size_t i = 0; i < n; ++i) {
            cplx sum = 0.0;
            for (std::size_t k = 0; k < n; ++k)
                sum += left ? std::conj(v(k)) * (s.beta[j] * A(k, i) - s.alpha(j) * B(k, i))
                            : (s.beta[j] * A(i, k) - s.alpha(j) * B(i, k)) * v(k);
            worst = std::max(worst, std::abs(sum));
        }
    }
    return worst;
}

Dense diagonal(const Numbers& d)
{
    Dense D(d.size(), d.size());
    D = 0.0;
    for (std::size_t i = 0; i < d.size(); ++i)
        D(i, i) = d[i];
    return D;
}

/// Pencils of all kinds that an iteration meets.
std::vector<std::pair<Dense, Dense>> manyPencils()
{
    std::vector<std::pair<Dense, Dense>> all;
    for (unsigned long n : {0, 1, 2, 3, 4, 7, 12, 33})
        for (unsigned seed = 0; seed < (n > 12 ? 1u : 3u); ++seed)
            all.emplace_back(randomMatrix<double>(n, n, 2 * seed + 1), randomMatrix<double>(n, n, 2 * seed + 2));
    for (unsigned seed = 0; seed < 4; ++seed) { // singular B: infinite eigenvalues; rows and columns of zeros too
        Dense B = randomMatrix<double>(6, 6, seed);
        for (unsigned long i = 0; i < 6; ++i) {
            B(i, 3) = seed < 2 ? 0.0 : B(i, 1);
            B(5, i) = seed == 1 ? 0.0 : B(5, i);
        }
        all.emplace_back(randomMatrix<double>(6, 6, seed + 50), B);
    }
    all.emplace_back(randomMatrix<double>(5, 5, 9), diagonal({0, 0, 0, 0, 0}));
    all.emplace_back(randomMatrix<double>(5, 5, 9), diagonal({1, 0, 2, 0, 0}));
    all.emplace_back(diagonal({0, 0, 0}), randomMatrix<double>(3, 3, 9));
    for (const double scale : {1e-250, 1e-20, 1e20, 1e250}) { // the drivers scale these
        all.emplace_back(randomMatrix<double>(5, 5, 9), randomMatrix<double>(5, 5, 10));
        for (double& v : all.back().first)
            v *= scale;
        for (double& v : all.back().second)
            v /= scale < 1.0 ? 1.0 : scale;
    }
    return all;
}

/// Ones below the diagonal and in the last place of the first row; shift on the diagonal.
Dense cyclic(unsigned long n, double shift = 0.0)
{
    Dense C(n, n);
    C = 0.0;
    for (unsigned long i = 0; i < n; ++i) {
        C((i + 1) % n, i) = 1.0;
        C(i, i) = shift;
    }
    return C;
}

/// Its eigenvalues: roots of unity, shifted.
std::vector<std::pair<cplx, double>> shiftedRootsOfUnity(unsigned long n, double shift)
{
    std::vector<std::pair<cplx, double>> roots;
    for (unsigned long k = 0; k < n; ++k)
        roots.emplace_back(shift + std::polar(1.0, 2.0 * M_PI * static_cast<double>(k) / static_cast<double>(n)), 1.0);
    return roots;
}

/// qxarray::eig, with LAPACK first and retries where it fails.
Spectrum eigOf(Dense A, Dense B, int flags = 3)
{
    Array<double, 1> alphar, alphai, beta;
    Spectrum s;
    s.info = qxarray::eig(A, B, alphar, alphai, beta, flags);
    s.alphar.assign(alphar.begin(), alphar.end());
    s.alphai.assign(alphai.begin(), alphai.end());
    s.beta.assign(beta.begin(), beta.end());
    return s;
}

double sizeOf(const Dense& A)
{
    double largest = 0.0;
    for (const double v : A)
        largest = std::max(largest, std::fabs(v));
    return largest;
}

bool isRegularEnough(const Spectrum& s)
{
    for (std::size_t i = 0; i < s.size(); ++i)
        if (std::abs(s.alpha(i)) + std::fabs(s.beta[i]) < 1e-10)
            return false; // 0/0: any number is an eigenvalue
    return true;
}

} // namespace

// ---- the retry

TEST(QZRetry, ShiftScalesFollowTheirSequence)
{
    const double wanted[] = {1.0, -1.01005, 0.98020, -0.97045, 1.04081, -1.05127, 0.94176, -0.93239};

    for (int k = 0; k < 8; ++k)
        EXPECT_NEAR(qxarray_detail::shiftScaleOfTry(k), wanted[k], 5e-6) << k;
}

TEST(QZRetry, ShiftScalesStayFarFromOverflow)
{
    double largest = 0.0, smallest = 1.0;
    for (int k = 0; k < 1000; ++k) {
        largest = std::max(largest, std::fabs(qxarray_detail::shiftScaleOfTry(k)));
        smallest = std::min(smallest, std::fabs(qxarray_detail::shiftScaleOfTry(k)));
    }

    EXPECT_NEAR(largest, 21375.0, 1.0); // exp(9.97)
    EXPECT_GT(smallest, 4e-5);
}

TEST(QZRetry, QuirkTheFirstRetryRepeatsWithShiftScaleOne)
{
    std::vector<double> scales;

    const int info = qxarray_detail::retryQZ(3, [&](double shiftScale) {
        scales.push_back(shiftScale);
        return 0;
    });

    EXPECT_EQ(info, 0);
    EXPECT_EQ(scales, std::vector<double>{1.0});
}

TEST(QZRetry, RepeatsUntilAnAttemptSucceeds)
{
    for (int failures : {1, 2, 7, 999}) {
        int calls = 0;
        EXPECT_EQ(qxarray_detail::retryQZ(3, [&](double) { return ++calls > failures ? 0 : 2; }), 0);
        EXPECT_EQ(calls, failures + 1);
    }
}

TEST(QZRetry, QuirkGivesUpAfterAThousandTries)
{
    int calls = 0;

    EXPECT_EQ(qxarray_detail::retryQZ(3, [&](double) { return ++calls; }), 1000);
    EXPECT_EQ(calls, 1000);
}

TEST(QZRetry, ANegativeInfoEndsAtOnce)
{
    int calls = 0;

    EXPECT_EQ(qxarray_detail::retryQZ(3, [&](double) { return ++calls == 2 ? -5 : 1; }), -5);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(qxarray_detail::retryQZ(-4, [&](double) { return ++calls; }), -4);
    EXPECT_EQ(qxarray_detail::retryQZ(0, [&](double) { return ++calls; }), 0);
    EXPECT_EQ(calls, 2); // nothing was tried
}

TEST(QZRetry, StartsEveryTryFromTheOriginalMatrices)
{
    // As if dggev had failed: it leaves rubbish in A and B.
    const Dense A = randomMatrix<double>(6, 6, 1), B = randomMatrix<double>(6, 6, 2);
    Dense a(6, 6), b(6, 6), none;
    a = b = notANumber;
    Spectrum s = roomFor(6);
    Numbers work(100);

    const int info = qxarray_detail::retryQZ(
        2,
        qxarray_detail::DggevCall{"N", "V", 6, a.data(), b.data(), s.alphar.data(), s.alphai.data(), s.beta.data(), s.vl.data(),
                                  6, s.vr.data(), 6, work.data(), 100},
        A.data(), B.data());

    EXPECT_EQ(info, 0);
    EXPECT_LE(distance(s, dggev(Maker::Lapack, "N", A, B)), 1e-13);
    EXPECT_LE(vectorResidual(s, A, B, false), 1e-13);
}

TEST(QZRetry, RepeatsTheExpertDriverToo)
{
    const Dense A = randomMatrix<double>(6, 6, 1), B = randomMatrix<double>(6, 6, 2);
    Dense a(6, 6), b(6, 6);
    a = b = notANumber;
    Spectrum s = roomFor(6);
    const Spectrum wanted = dggevx(Maker::Lapack, "B", "N", "E", A, B);
    Numbers work(static_cast<std::size_t>(wanted.lwork));
    int iwork[12], bwork[6];

    const int info = qxarray_detail::retryQZ(
        2,
        qxarray_detail::DggevxCall{6, a.data(), b.data(), s.alphar.data(), s.alphai.data(), s.beta.data(), &s.ilo, &s.ihi,
                                   s.lscale.data(), s.rscale.data(), &s.abnrm, &s.bbnrm, s.rconde.data(), work.data(),
                                   wanted.lwork, iwork, bwork},
        A.data(), B.data());

    EXPECT_EQ(info, 0);
    EXPECT_LE(distance(s, wanted), 1e-13);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(s.rconde[i], wanted.rconde[i], 1e-12);
    EXPECT_NEAR(s.abnrm, wanted.abnrm, 1e-14 * wanted.abnrm);
}

TEST(QZRetry, RescuesPencilsOnWhichDggevFails)
{
    // LAPACK 3.11 does not converge on a cyclic shift matrix less the identity.
    int failures = 0;
    for (const unsigned long n : {3ul, 4ul})
        for (const double sign : {1.0, -1.0}) {
            const Dense A = cyclic(n, -1.0), B = diagonal(Numbers(n, sign));
            failures += dggev(Maker::Lapack, "N", A, B).info > 0;

            const Spectrum s = eigOf(A, B);
            Dense a = A, b = B;
            Array<double, 1> alphar, alphai, beta, rconde;
            double abnrm, bbnrm;
            const int expert = qxarray::eig(a, b, alphar, alphai, beta, &abnrm, &bbnrm, rconde);

            std::vector<std::pair<cplx, double>> wanted = shiftedRootsOfUnity(n, -1.0);
            for (auto& pair : wanted)
                pair.first *= sign;
            EXPECT_EQ(s.info, 0);
            EXPECT_EQ(expert, 0);
            EXPECT_LE(distance(s, wanted), 1e-14);
        }
    RecordProperty("failuresOfLapack", failures);
}

TEST(QZRetry, SmallIntegerPencilsAreSolvedOrRefusedAsDocumented)
{
    const qxbase::BlasThreadScope oneThread(1);
    std::mt19937 generator(12345);
    const auto digit = [&] { return static_cast<double>(generator() % 3) - 1.0; };
    int failures = 0, refused = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const unsigned long n = 3 + generator() % 4;
        Dense A(n, n), B(n, n);
        A = B = 0.0;
        const bool identity = trial % 2 == 0;
        for (unsigned long j = 0; j < n; ++j) {
            for (unsigned long i = 0; i < std::min(j + 2, n); ++i)
                A(i, j) = digit();
            for (unsigned long i = 0; i <= j; ++i)
                B(i, j) = i == j ? 1.0 : identity ? 0.0 : digit();
            if (j + 1 < n)
                A(j + 1, j) = 1.0;
        }
        if (trial % 4 == 0) // constant diagonals are where iterations stand still
            for (unsigned long j = 1; j < n; ++j)
                for (unsigned long i = 1; i < n; ++i)
                    A(i, j) = A(i - 1, j - 1);
        const bool lapackFailed = dggev(Maker::Lapack, "N", A, B).info > 0;
        failures += lapackFailed;
        Spectrum s;
        try {
            s = eigOf(A, B);
        } catch (const qxbase::Exception& e) {
            EXPECT_EQ(e.getId(), "Iteration_in_the_QZ_algorithm_failed");
            EXPECT_TRUE(lapackFailed);
            ++refused;
            continue;
        }
        cplx sum = 0.0, trace = 0.0; // of the eigenvalues, by the diagonal of A B^-1
        Dense inverse = B, X = diagonal(Numbers(n, 1.0));
        qxarray::linsolv(inverse, X, 3);
        const Dense quotient = product(X, A);
        for (unsigned long i = 0; i < n; ++i) {
            sum += s.alpha(i) / s.beta[i];
            trace += quotient(i, i);
        }
        ASSERT_NEAR(std::abs(sum - trace), 0.0, 1e-8) << "trial " << trial;
    }
    RecordProperty("failuresOfLapack", failures);
    RecordProperty("refused", refused);
}

TEST(QZRetry, EndsWithTheDocumentedFailureWhereNothingConverges)
{
    // No iteration converges on NaN, which eig itself refuses before: the front door is told apart from the loop.
    Dense A = randomMatrix<double>(3, 3, 1), B = randomMatrix<double>(3, 3, 2);
    A(1, 1) = notANumber;
    Spectrum s = roomFor(3);
    Dense a = A, b = B;
    Numbers work(100);
    const qxarray_detail::DggevCall call{"N", "N", 3, a.data(), b.data(), s.alphar.data(), s.alphai.data(), s.beta.data(),
                                         nullptr, 1, nullptr, 1, work.data(), 100};

    EXPECT_GT(qxarray_detail::retryQZ(3, call, A.data(), B.data()), 0);
    EXPECT_EQ(idOf([&] { eigOf(A, B); }), "Internal_numerical_error");
}

// ---- the exceptional shift

TEST(ExceptionalShift, AddsAScaledQuotient)
{
    using qxarray_detail::nextExceptionalShift;
    const double safmin = std::numeric_limits<double>::min();

    EXPECT_EQ(nextExceptionalShift(0.0, 3.0, 4.0, 300, safmin, 1.0), 0.75);
    EXPECT_EQ(nextExceptionalShift(0.5, 3.0, 4.0, 300, safmin, -2.0), -1.0);
    EXPECT_EQ(nextExceptionalShift(0.5, -3.0, 4.0, 300, safmin, 1.0), -0.25);
    EXPECT_EQ(nextExceptionalShift(0.5, 0.0, 4.0, 300, safmin, 1.0), 0.5);
}

TEST(ExceptionalShift, AddsALargeNumberWhereTheQuotientWouldOverflow)
{
    using qxarray_detail::nextExceptionalShift;
    const double safmin = std::numeric_limits<double>::min(), large = 1.0 / (safmin * 300.0);

    EXPECT_EQ(nextExceptionalShift(0.5, 3.0, 0.0, 300, safmin, 7.0), 0.5 + large);
    EXPECT_EQ(nextExceptionalShift(0.0, 1.0, 300.0 * safmin, 300, safmin, 7.0), large); // the comparison is strict
    EXPECT_NE(nextExceptionalShift(0.0, 1.0, 301.0 * safmin, 300, safmin, 1.0), large);
    EXPECT_EQ(nextExceptionalShift(0.0, 0.0, 0.0, 300, safmin, 7.0), large);
}

// ---- the drivers

TEST(DggevMod, WithShiftScaleOneIsDggev)
{
    const qxbase::BlasThreadScope oneThread(1); // small matrices
    for (const auto& [A, B] : manyPencils())
        for (const char* job : {"N", "V"}) {
            const Spectrum ours = dggev(Maker::Ours, job, A, B), lapack = dggev(Maker::Lapack, job, A, B);

            EXPECT_EQ(ours.info, 0);
            EXPECT_EQ(ours.lwork, lapack.lwork);
            if (!isRegularEnough(lapack))
                continue;
            EXPECT_LE(distance(ours, lapack), 1e-12) << A.extent(0) << job;
            const double size = sizeOf(A) * sizeOf(B) * static_cast<double>(A.extent(0));
            if (*job == 'V' && sizeOf(A) > 1e-100 && sizeOf(A) < 1e100) {
                EXPECT_LE(vectorResidual(ours, A, B, false), 1e-13 * size);
                EXPECT_LE(vectorResidual(ours, A, B, true), 1e-13 * size);
            }
        }
}

TEST(DggevMod, PairsAreAdjacentAndBetaIsNotNegative)
{
    for (const auto& [A, B] : manyPencils()) {
        const Spectrum s = dggev(Maker::Ours, "V", A, B);
        for (std::size_t i = 0; i < s.size(); ++i) {
            EXPECT_GE(s.beta[i], 0.0);
            if (s.alphai[i] > 0.0) {
                ASSERT_LT(i + 1, s.size());
                EXPECT_LT(s.alphai[i + 1], 0.0);
                EXPECT_NEAR(s.alphai[i + 1] * s.beta[i] / s.alphai[i] / s.beta[i + 1], -1.0, 1e-12);
            }
        }
    }
}

TEST(DggevMod, VectorsHaveALargestComponentOfOne)
{
    const Spectrum s = dggev(Maker::Ours, "V", randomMatrix<double>(8, 8, 1), randomMatrix<double>(8, 8, 2));
    for (std::size_t j = 0; j < 8; ++j)
        if (s.alphai[j] >= 0.0) {
            double largest = 0.0;
            for (std::size_t i = 0; i < 8; ++i)
                largest = std::max(largest, std::fabs(s.vr(i, j)) + (s.alphai[j] > 0.0 ? std::fabs(s.vr(i, j + 1)) : 0.0));
            EXPECT_NEAR(largest, 1.0, 1e-15);
        }
}

TEST(DggevMod, FindsADefectivePencil)
{
    // One Jordan block of order 4 with the eigenvalue 2, hidden by products with integer matrices.
    Dense J = diagonal({2, 2, 2, 2});
    for (unsigned long i = 0; i < 3; ++i)
        J(i, i + 1) = 1.0;
    Dense P = diagonal({1, 1, 1, 1});
    for (unsigned long i = 0; i < 4; ++i)
        for (unsigned long j = 0; j < i; ++j)
            P(i, j) = static_cast<double>((i * 3 + j * 5) % 3) - 1.0;

    const Spectrum ours = dggev(Maker::Ours, "N", product(P, J), P), lapack = dggev(Maker::Lapack, "N", product(P, J), P);

    EXPECT_LE(distance(ours, {{2.0, 1.0}, {2.0, 1.0}, {2.0, 1.0}, {2.0, 1.0}}), 2e-3); // eps^(1/4)
    EXPECT_LE(distance(lapack, {{2.0, 1.0}, {2.0, 1.0}, {2.0, 1.0}, {2.0, 1.0}}), 2e-3);
}

TEST(DggevMod, AgreesWithFiftyDigits)
{
    const std::map<std::string, double> tolerance = {{"repeated", 2e-6}, {"graded", 1e-10}};
    const auto lines = qxtest::readReferences(QX_PENCILS_FILE, "pencil");
    ASSERT_GT(lines.size(), 15u);
    for (const qxtest::ReferenceLine& line : lines) {
        const auto n = static_cast<unsigned long>(line.numbers.at(0));
        ASSERT_EQ(line.numbers.size(), 1 + 2 * n * n + 3 * n);
        Dense A(n, n), B(n, n);
        std::copy_n(line.numbers.begin() + 1, n * n, A.begin());
        std::copy_n(line.numbers.begin() + std::ptrdiff_t(1 + n * n), n * n, B.begin());
        std::vector<std::pair<cplx, double>> wanted;
        for (std::size_t i = 0; i < n; ++i) {
            const auto at = line.numbers.begin() + std::ptrdiff_t(1 + 2 * n * n + 3 * i);
            wanted.emplace_back(cplx(at[0], at[1]), at[2]);
        }
        EXPECT_LE(distance(eigOf(A, B), wanted), 2e-6) << line.name << n;
        for (const double shiftScale : {1.0, -1.01005, 0.94176}) {
            if (line.name == "cyclic")
                break; // see QuirkTheExceptionalShiftLooksAboveTheDiagonal
            const Spectrum s = dggev(Maker::Ours, "N", A, B, shiftScale);

            EXPECT_EQ(s.info, 0);
            const auto found = tolerance.find(line.name);
            EXPECT_LE(distance(s, wanted), found == tolerance.end() ? 1e-13 : found->second) << line.name << n;
        }
    }
}

TEST(DggevMod, OfOrderZeroReturnsAtOnce)
{
    const Spectrum s = dggev(Maker::Ours, "V", Dense(0, 0), Dense(0, 0));

    EXPECT_EQ(s.info, 0);
    EXPECT_EQ(s.lwork, dggev(Maker::Lapack, "V", Dense(0, 0), Dense(0, 0)).lwork);
}

TEST(DggevMod, ANaNDoesNotHangIt)
{
    Dense A = randomMatrix<double>(5, 5, 1);
    A(2, 3) = notANumber;

    EXPECT_NE(dggev(Maker::Ours, "N", A, randomMatrix<double>(5, 5, 2)).info, 0);
}

TEST(DggevxMod, WithShiftScaleOneIsDggevxForEveryBalanceAndSense)
{
    const qxbase::BlasThreadScope oneThread(1);
    for (const auto& [A, B] : manyPencils())
        for (const char* balance : {"N", "P", "S", "B"})
            for (const char* job : {"N", "V"})
                for (const char* sense : {"N", "E", "V", "B"}) {
                    const Spectrum ours = dggevx(Maker::Ours, balance, job, sense, A, B),
                                   lapack = dggevx(Maker::Lapack, balance, job, sense, A, B);

                    EXPECT_EQ(ours.info, 0);
                    EXPECT_EQ(ours.lwork, lapack.lwork) << A.extent(0) << balance << job << sense;
                    if (A.extent(0) == 0)
                        continue;
                    EXPECT_EQ(ours.abnrm, lapack.abnrm);
                    EXPECT_EQ(ours.bbnrm, lapack.bbnrm);
                    EXPECT_EQ(ours.ilo, lapack.ilo);
                    EXPECT_EQ(ours.ihi, lapack.ihi);
                    EXPECT_EQ(ours.lscale, lapack.lscale);
                    EXPECT_EQ(ours.rscale, lapack.rscale);
                    if (!isRegularEnough(lapack))
                        continue;
                    EXPECT_LE(distance(ours, lapack), 1e-12) << A.extent(0) << balance << job << sense;
                }
}

TEST(DggevxMod, ConditionNumbersAreThoseOfDggevx)
{
    for (unsigned seed = 1; seed < 6; ++seed) {
        const Dense A = randomMatrix<double>(9, 9, seed), B = randomMatrix<double>(9, 9, seed + 20);
        const Spectrum ours = dggevx(Maker::Ours, "B", "N", "B", A, B), lapack = dggevx(Maker::Lapack, "B", "N", "B", A, B);
        for (std::size_t i = 0; i < 9; ++i) {
            std::size_t partner = 0;
            for (std::size_t j = 0; j < 9; ++j)
                if (chordal(ours.alpha(i), ours.beta[i], lapack.alpha(j), lapack.beta[j]) <
                    chordal(ours.alpha(i), ours.beta[i], lapack.alpha(partner), lapack.beta[partner]))
                    partner = j;
            EXPECT_NEAR(ours.rconde[i], lapack.rconde[partner], 1e-10 * lapack.rconde[partner]);
            const double tolerance = 0.5; // an estimate, which also depends on the order and the bases of the form
            EXPECT_NEAR(ours.rcondv[i], lapack.rcondv[partner], tolerance * lapack.rcondv[partner]);
        }
    }
}

// ---- the iteration

TEST(DhgeqzMod, ReducesToSchurFormAndKeepsThePencil)
{
    for (unsigned long n : {1, 2, 5, 20}) {
        Dense A = randomMatrix<double>(n, n, 3), B = randomMatrix<double>(n, n, 4), Q, Z;
        const Dense A0 = A, B0 = B;
        ASSERT_EQ(qxarray::generalizedHess(A, B, Q, Z), 0);
        Spectrum s = roomFor(n);
        const int size = static_cast<int>(n), one = 1;
        int info = -1;
        Numbers work(n);

        dhgeqz_mod("S", "V", "V", &size, &one, &size, A.data(), &size, B.data(), &size, s.alphar.data(), s.alphai.data(),
                   s.beta.data(), Q.data(), &size, Z.data(), &size, work.data(), &size, &info, 1.0);

        EXPECT_EQ(info, 0);
        Dense Zt, Qt;
        qxarray::adjoint(Z, Zt);
        qxarray::adjoint(Q, Qt);
        const double tolerance = 1e-14 * static_cast<double>(n + 5);
        EXPECT_TRUE(allNear(product(product(Q, A), Zt), A0, tolerance));
        EXPECT_TRUE(allNear(product(product(Q, B), Zt), B0, tolerance));
        EXPECT_TRUE(allNear(product(Qt, Q), diagonal(Numbers(n, 1.0)), tolerance));
        EXPECT_TRUE(allNear(product(Zt, Z), diagonal(Numbers(n, 1.0)), tolerance));
        for (unsigned long j = 0; j < n; ++j)
            for (unsigned long i = j + 1; i < n; ++i) {
                EXPECT_EQ(B(i, j), 0.0);
                const bool pair = i == j + 1 && s.alphai[j] > 0.0;
                if (!pair) {
                    EXPECT_EQ(A(i, j), 0.0) << i << j;
                } else {
                    EXPECT_EQ(B(j, i), 0.0); // diagonal in the rows of a pair
                    EXPECT_GE(B(j, j), B(i, i));
                    EXPECT_GE(B(i, i), 0.0);
                }
            }
    }
}

TEST(DhgeqzMod, StartsFromTheIdentityOnRequestAndFindsEigenvaluesAlone)
{
    Dense A = randomMatrix<double>(8, 8, 5), B = randomMatrix<double>(8, 8, 6), Q, Z;
    ASSERT_EQ(qxarray::generalizedHess(A, B, Q, Z), 0);
    const Dense H = A, R = B;
    const int n = 8, one = 1;
    int info = -1;
    Numbers work(8);
    Spectrum schur = roomFor(8), alone = roomFor(8);

    dhgeqz_mod("S", "I", "I", &n, &one, &n, A.data(), &n, B.data(), &n, schur.alphar.data(), schur.alphai.data(),
               schur.beta.data(), Q.data(), &n, Z.data(), &n, work.data(), &n, &info, 1.0);
    Dense E = H, F = R;
    dhgeqz_mod("E", "N", "N", &n, &one, &n, E.data(), &n, F.data(), &n, alone.alphar.data(), alone.alphai.data(),
               alone.beta.data(), nullptr, &one, nullptr, &one, work.data(), &n, &info, 1.0);

    Dense Zt;
    qxarray::adjoint(Z, Zt);
    EXPECT_TRUE(allNear(product(product(Q, A), Zt), H, 1e-13));
    EXPECT_TRUE(allNear(product(product(Q, B), Zt), R, 1e-13));
    EXPECT_EQ(info, 0);
    EXPECT_LE(distance(schur, alone), 1e-13);
}

TEST(DhgeqzMod, QuirkTheExceptionalShiftLooksAboveTheDiagonal)
{
    // Ordinary shifts stand still on a cyclic shift matrix, and the entry above its diagonal is 0: with any factor the
    // exceptional shift is 0 too. LAPACK's own, from the entry below, converges: eig never comes here.
    const Dense C = cyclic(4);

    for (const double shiftScale : {1.0, -1.01, 5.0})
        EXPECT_GT(dggev(Maker::Ours, "N", C, diagonal(Numbers(4, 1.0)), shiftScale).info, 0);
    EXPECT_EQ(dggev(Maker::Lapack, "N", C, diagonal(Numbers(4, 1.0))).info, 0);
}

TEST(DhgeqzMod, GivesTheSameBitsEveryTime)
{
    const Dense A = randomMatrix<double>(30, 30, 1), B = randomMatrix<double>(30, 30, 2);

    EXPECT_EQ(dggev(Maker::Ours, "N", A, B).alphar, dggev(Maker::Ours, "N", A, B).alphar);
}

// ---- bad arguments

namespace {

/// Runs act in a child process with the standard output joined to the error output.
template <class Act>
void inChild(Act act)
{
    dup2(2, 1);
    act();
    std::fflush(nullptr);
    _exit(0);
}

using QZDeathTest = testing::Test;

} // namespace

TEST(QZDeathTest, BadArgumentsAreReportedUnderLapacksNames)
{
    const int n = 2, one = 1, minusOne = -1, zero = 0, lwork = 100;
    double a[4] = {}, b[4] = {}, v[100] = {};
    int info = 0, i1 = 0, i2 = 0, iwork[10], bwork[10];
    const auto ended = [](int) { return true; }; // xerbla may or may not stop the process
    const auto ggev = [&](const char* jobvl, const char* jobvr, const int* order, const int* lda, const int* ldb, const int* ldv,
                          const int* size) {
        dggev_mod(jobvl, jobvr, order, a, lda, b, ldb, v, v, v, v, ldv, v, ldv, v, size, &info, 1.0);
    };
    const auto ggevx = [&](const char* balance, const char* sense, const int* lda) {
        dggevx_mod(balance, "N", "N", sense, &n, a, lda, b, &n, v, v, v, v, &one, v, &one, &i1, &i2, v, v, v, v, v, v, v, &lwork,
                   iwork, bwork, &info, 1.0);
    };
    const auto hgeqz = [&](const char* job, const char* compq, const int* ilo, const int* ihi) {
        dhgeqz_mod(job, compq, "N", &n, ilo, ihi, a, &n, b, &n, v, v, v, v, &one, v, &one, v, &lwork, &info, 1.0);
    };

    EXPECT_EXIT(inChild([&] { ggev("X", "N", &n, &n, &n, &n, &lwork); }), ended, "DGGEV .* 1 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "X", &n, &n, &n, &n, &lwork); }), ended, "DGGEV .* 2 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "N", &minusOne, &n, &n, &n, &lwork); }), ended, "DGGEV .* 3 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "N", &n, &one, &n, &n, &lwork); }), ended, "DGGEV .* 5 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "N", &n, &n, &one, &n, &lwork); }), ended, "DGGEV .* 7 ");
    EXPECT_EXIT(inChild([&] { ggev("V", "N", &n, &n, &n, &one, &lwork); }), ended, "DGGEV .*12 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "V", &n, &n, &n, &one, &lwork); }), ended, "DGGEV .*14 ");
    EXPECT_EXIT(inChild([&] { ggev("N", "N", &n, &n, &n, &n, &one); }), ended, "DGGEV .*16 ");
    EXPECT_EXIT(inChild([&] { ggevx("X", "N", &n); }), ended, "DGGEVX .* 1 ");
    EXPECT_EXIT(inChild([&] { ggevx("N", "X", &n); }), ended, "DGGEVX .* 4 ");
    EXPECT_EXIT(inChild([&] { ggevx("N", "N", &one); }), ended, "DGGEVX .* 7 ");
    EXPECT_EXIT(inChild([&] { hgeqz("X", "N", &one, &n); }), ended, "DHGEQZ .* 1 ");
    EXPECT_EXIT(inChild([&] { hgeqz("E", "V", &one, &n); }), ended, "DHGEQZ .*15 ");
    EXPECT_EXIT(inChild([&] { hgeqz("E", "N", &zero, &n); }), ended, "DHGEQZ .* 5 ");
    EXPECT_EXIT(inChild([&] { hgeqz("E", "N", &one, &lwork); }), ended, "DHGEQZ .* 6 ");
}
