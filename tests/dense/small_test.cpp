// SPDX-License-Identifier: LicenseRef-qxkernel
// Small problems: work arrays in the frame, LAPACK not asked for their size. The bits are those of the routine called with
// work arrays of the size that it asks for.
#include "arrayutil.hpp"
#include "dense/lapack_detail.hpp"
#include "dense_values.hpp"
#include "support/alloc_fault.hpp"

namespace {

using namespace densetest;
using qxarray_detail::Lapack;
using qxtest::allocationCount;

template <class T>
class Small : public testing::Test
{
};
using Types = testing::Types<double, cplx>;
TYPED_TEST_SUITE(Small, Types);

const std::pair<unsigned long, unsigned long> shapes[] = {{1, 1}, {4, 4}, {16, 16}, {16, 5}, {5, 16}, {17, 17}, {17, 3}};

/// call(work, lwork) with as much work as it asks for, and some elements behind that.
template <class T, class Call>
void withOwnWork(Call call)
{
    T answer(0);
    call(&answer, -1);
    std::vector<T> work(static_cast<std::size_t>(std::real(answer)) + 64);
    call(work.data(), static_cast<int>(std::real(answer)));
}

/// A copy with room behind it, for routines that read a column too far.
template <class T>
std::vector<T> roomy(const Array<T, 2>& A)
{
    std::vector<T> copy(A.size() + A.extent(0) + 64);
    std::copy_n(A.data(), A.size(), copy.data());
    return copy;
}

TYPED_TEST(Small, SingularValuesAndVectorsHaveTheBitsOfTheRoutine)
{
    using T = TypeParam;
    for (const auto& [rows, columns] : shapes) {
        const Array<T, 2> A0 = randomMatrix<T>(rows, columns, 21);
        const int m = static_cast<int>(rows), n = static_cast<int>(columns);
        std::vector<T> a = roomy(A0), u(rows * rows + 64), vt(columns * columns + 64);
        std::vector<double> values(std::min(rows, columns)), rwork(5 * rows + 5 * columns);
        int info = 0;
        withOwnWork<T>([&](T* work, int lwork) {
            Lapack<T>::gesvd("A", "A", &m, &n, a.data(), &m, values.data(), u.data(), &m, vt.data(), &n, work, &lwork,
                             rwork.data(), &info);
        });
        Array<T, 2> A = A0, U, VT;
        Array<double, 1> s;

        EXPECT_EQ(qxarray::svd("A", "A", A, U, s, VT, 3), info);

        EXPECT_TRUE(std::equal(values.begin(), values.end(), s.begin())) << m << 'x' << n;
        EXPECT_TRUE(std::equal(U.begin(), U.end(), u.begin())) << m << 'x' << n;
        EXPECT_TRUE(std::equal(VT.begin(), VT.end(), vt.begin())) << m << 'x' << n;
    }
}

TYPED_TEST(Small, EigenvaluesAndVectorsHaveTheBitsOfTheRoutine)
{
    using T = TypeParam;
    for (const unsigned long order : {1ul, 4ul, 16ul, 17ul}) {
        const Array<T, 2> A0 = randomMatrix<T>(order, order, 22);
        const int n = static_cast<int>(order);
        std::vector<T> a = roomy(A0), left(order * order), right(order * order);
        std::vector<double> re(order), im(order), rwork(2 * order);
        std::vector<cplx> z(order);
        typename Lapack<T>::Values values;
        if constexpr (std::is_same_v<T, double>)
            values = {re.data(), im.data()};
        else
            values = {z.data()};
        int info = 0;
        withOwnWork<T>([&](T* work, int lwork) {
            Lapack<T>::geev("V", "V", &n, a.data(), &n, values, left.data(), &n, right.data(), &n, work, &lwork,
                            rwork.data(), &info);
        });
        Array<T, 2> A = A0, VL, VR;
        if constexpr (std::is_same_v<T, double>) {
            Array<double, 1> wr, wi;
            EXPECT_EQ(qxarray::eig("V", "V", A, wr, wi, VL, VR, 3), info);
            EXPECT_TRUE(std::equal(wr.begin(), wr.end(), re.begin())) << n;
            EXPECT_TRUE(std::equal(wi.begin(), wi.end(), im.begin())) << n;
        } else {
            Array<cplx, 1> w;
            EXPECT_EQ(qxarray::eig("V", "V", A, w, VL, VR, 3), info);
            EXPECT_TRUE(std::equal(w.begin(), w.end(), z.begin())) << n;
        }
        EXPECT_TRUE(std::equal(VL.begin(), VL.end(), left.begin())) << n;
        EXPECT_TRUE(std::equal(VR.begin(), VR.end(), right.begin())) << n;
    }
}

TYPED_TEST(Small, LeastSquaresHasTheBitsOfTheRoutine)
{
    using T = TypeParam;
    for (const auto& [rows, columns] : shapes)
        for (const unsigned long sides : {1ul, 3ul, 20ul}) {
            const unsigned long longer = std::max(rows, columns);
            const Array<T, 2> A0 = randomMatrix<T>(rows, columns, 23), B0 = randomMatrix<T>(longer, sides, 24);
            const int m = static_cast<int>(rows), n = static_cast<int>(columns), nrhs = static_cast<int>(sides),
                      ld = static_cast<int>(longer);
            std::vector<T> a = roomy(A0), b = roomy(B0);
            std::vector<double> values(longer), rwork(5 * longer);
            const double rcond = -1.0;
            int rank = 0, info = 0;
            withOwnWork<T>([&](T* work, int lwork) {
                Lapack<T>::gelss(&m, &n, &nrhs, a.data(), &m, b.data(), &ld, values.data(), &rcond, &rank, work, &lwork,
                                 rwork.data(), &info);
            });
            Array<T, 2> A = A0, X;

            EXPECT_EQ(qxarray::leastSquares(A, B0, X, rcond, 3), info);

            for (unsigned long j = 0; j < sides; ++j)
                EXPECT_TRUE(std::equal(X.data() + j * columns, X.data() + (j + 1) * columns, b.data() + j * longer))
                    << m << 'x' << n << ", " << sides << " right-hand sides, column " << j;
        }
}

TYPED_TEST(Small, NothingIsAllocatedOnceTheResultsHaveTheirSize)
{
    using T = TypeParam;
    const Array<T, 2> A0 = randomMatrix<T>(4, 4, 25);
    Array<T, 2> A = A0, U, VT, VL, VR;
    Array<T, 1> b(4), tau;
    Array<double, 1> s, wr, wi;
    Array<cplx, 1> w;
    Array<int, 1> jpvt;
    b = T(1);
    const auto work = [&] {
        A = A0;
        qxarray::linsolv(A, b, 3);
        A = A0;
        qxarray::svd("A", "A", A, U, s, VT, 3);
        A = A0;
        qxarray::qr(A, tau, jpvt, 3);
        A = A0;
        qxarray::qr(A, tau, 3);
        qxarray::q(A, tau, 3);
        A = A0;
        if constexpr (std::is_same_v<T, double>)
            qxarray::eig("V", "V", A, wr, wi, VL, VR, 3);
        else
            qxarray::eig("V", "V", A, w, VL, VR, 3);
    };
    work();

    const long before = allocationCount();
    work();

    EXPECT_EQ(allocationCount(), before);
}

} // namespace
