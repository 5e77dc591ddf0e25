// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as small matrices that are factorised, solved with and used as constraints. Factors must multiply to the matrix,
// bases must span null spaces, wherever the scales allow a statement.

#include "bytes.hpp"
#include "dense_model.hpp"

#include "qxexception.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"
#include "umfpack.hpp"

namespace {

using namespace fuzz;
using cplx = std::complex<double>;

/// A matrix in any storage; extreme: also values near the ends of the range.
Sparse matrixFrom(Bytes& in, Index m, Index n, bool real, bool extreme)
{
    std::vector<Index> rows, cols;
    std::vector<double> re;
    std::vector<cplx> z;
    const unsigned count = m * n == 0 ? 0 : in.below(unsigned(m * n + 1));
    const double factors[] = {1e300, 1e200, 1e-200, 5e-324};
    for (unsigned k = 0; k < count; ++k) {
        const double factor = extreme && in.below(4) == 0 ? factors[in.below(4)] : 1.0;
        rows.push_back(in.below(unsigned(m)));
        cols.push_back(in.below(unsigned(n)));
        z.emplace_back(in.number() * factor, real ? 0.0 : in.number() * factor);
        re.push_back(z.back().real());
    }
    Sparse A;
    if (real)
        A.triplet2sparse(rows, cols, re, m, n);
    else
        A.triplet2sparse(rows, cols, z, m, n);
    const Symm_t symm = Symm_t(in.below(4));
    if (symm == RowStored)
        A = convertToRow(A);
    else if (m == n)
        A.setSymm(symm);
    return A;
}

void factorise(Bytes& in)
{
    const Index m = in.below(8), n = in.coin() ? m : in.below(8);
    const bool extreme = in.below(4) == 0, singular = in.coin(), scale = in.coin(), transpose = in.coin();
    Sparse A = matrixFrom(in, m, n, in.coin(), extreme), input = A;
    const Dense D = represented(stored(A), A.getSymm());
    qxutil::RunInfo run;
    Umfpack solver(run);
    solver.init(input, in.coin(), transpose, singular, scale);
    if (singular && m != 0 && n != 0 && !extreme) {
        Sparse L, U, P, Q, R;
        solver.getLuFactorization(L, U, P, Q, R);
        expectEqual(times(stored(L), stored(U)), times(times(stored(P), stored(R)), times(D, stored(Q))), "L U = P R A Q");
    }
    Matrix<1> b(m, true), x;
    for (Index i = 0; i < m; ++i)
        b.getdArr()[i] = in.number();
    solver.solve(b, x);
    double res = 0.0, err = 0.0;
    solver.checkTolerances(x, b, 1e-6, 1e-6, res, err);
    solver.clear();
}

void constrain(Bytes& in)
{
    const Index d = 1 + in.below(9), c = 1 + in.below(6);
    const bool real = in.coin(), extreme = in.below(4) == 0, second = in.coin();
    const NullFun method = in.coin() ? NullFunSparse : NullFunOrthonormal;
    const Sparse N = matrixFrom(in, d, c, real, extreme), NF = second ? matrixFrom(in, d, c, real, extreme) : Sparse();
    qxutil::RunInfo run;
    Sparse Null, Compl, Range, NullF, ComplF, RangeF;
    qxNull(run, N, Sparse(), NF, true, Null, true, Compl, true, Range, NullF, second, ComplF, second, RangeF, second, method,
           in.coin());
    const auto check = [&](const Sparse& constraints, const Sparse& basis, const Sparse& complement, const Sparse& range) {
        const Dense C = represented(stored(constraints), constraints.getSymm()), B = stored(basis), K = stored(complement);
        if (B.n + K.n != d || K.n != stored(range).m)
            std::abort();
        const double limit = 1e-7 * (1 + largest(C)) * (1 + largest(B));
        if (!extreme && largest(times(transposed(C, true), B)) > limit)
            std::abort();
        if (!extreme)
            expectEqual(stored(range), times(transposed(K, true), C), "Range = Compl^H N");
    };
    check(N, Null, Compl, Range);
    if (second)
        check(NF, NullF, ComplF, RangeF);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Bytes in(data, size);
    while (!in.empty())
        try {
            in.coin() ? factorise(in) : constrain(in);
        } catch (const qxbase::Exception& e) {
            if (e.getId() == "Internal_error_sparse" || e.getId() == "r vectors does not sum up correct.")
                std::abort();
        }
    return 0;
}
