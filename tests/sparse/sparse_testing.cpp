// SPDX-License-Identifier: LicenseRef-qxkernel
#include "sparse_testing.hpp"

#include <algorithm>
#include <sstream>

namespace qxtest {

Dense::Dense(std::initializer_list<std::initializer_list<cplx>> rows)
    : Dense(rows.size(), rows.size() ? rows.begin()->size() : 0)
{
    Index i = 0;
    for (const auto& row : rows) {
        Index j = 0;
        for (const cplx& value : row)
            (*this)(i, j++) = value;
        ++i;
    }
}

Dense operator+(const Dense& a, const Dense& b)
{
    Dense c = a;
    for (std::size_t k = 0; k < c.v.size(); ++k)
        c.v[k] += b.v[k];
    return c;
}

Dense operator-(const Dense& a, const Dense& b) { return a + cplx(-1.0) * b; }

Dense operator*(cplx s, const Dense& a)
{
    Dense c = a;
    for (cplx& value : c.v)
        value *= s;
    return c;
}

Dense operator*(const Dense& a, const Dense& b)
{
    Dense c(a.m, b.n);
    for (Index j = 0; j < b.n; ++j)
        for (Index k = 0; k < a.n; ++k)
            for (Index i = 0; i < a.m; ++i)
                c(i, j) += a(i, k) * b(k, j);
    return c;
}

Dense op(const Dense& a, Trans_t trans)
{
    if (trans == NoTrans)
        return a;
    Dense c(a.n, a.m);
    for (Index j = 0; j < a.n; ++j)
        for (Index i = 0; i < a.m; ++i)
            c(j, i) = trans == ConjTrans ? std::conj(a(i, j)) : a(i, j);
    return c;
}

std::vector<Entry> entries(const Sparse& A)
{
    std::vector<Entry> list;
    const bool byRow = A.getSymm() == RowStored;
    const Index columns = byRow ? A.getM() : A.getN();
    for (Index j = 0; j < columns; ++j)
        for (Index p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p) {
            const cplx value = A.isReal() ? cplx(A.getDoubleVal()[p]) : A.getDcmplxVal()[p];
            list.push_back({A.getRow()[p], j, value});
        }
    return list;
}

Dense storedDense(const Sparse& A)
{
    Dense d(A.getM(), A.getN());
    for (const Entry& e : entries(A))
        A.getSymm() == RowStored ? d(e.col, e.row) += e.val : d(e.row, e.col) += e.val;
    return d;
}

Dense dense(const Sparse& A)
{
    const Dense s = storedDense(A);
    if (A.getSymm() == Symmetric)
        return s + op(s, Trans);
    if (A.getSymm() == Hermitian)
        return s + op(s, ConjTrans);
    return s;
}

Dense dense(const Matrix<1>& x)
{
    Dense d(x.size(), 1);
    for (Index i = 0; i < x.size(); ++i)
        d.v[i] = x[i];
    return d;
}

testing::AssertionResult near(const Dense& got, const Dense& wanted, double tol)
{
    if (got.m != wanted.m || got.n != wanted.n)
        return testing::AssertionFailure() << "sizes: got " << got.m << "x" << got.n << ", wanted " << wanted.m << "x"
                                           << wanted.n;
    double worst = -1.0;
    Index at = 0;
    for (Index k = 0; k < got.v.size(); ++k) {
        const double error = std::abs(got.v[k] - wanted.v[k]);
        if (!(error <= worst)) { // a NaN is the worst of all
            worst = error;
            at = k;
            if (std::isnan(error))
                break;
        }
    }
    if (worst <= tol)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "worst at (" << at % got.m << "," << at / got.m << "): got " << got.v[at]
                                       << ", wanted " << wanted.v[at] << ", error " << worst << " above " << tol;
}

Sparse sparseOf(Index m, Index n, const std::vector<Entry>& list, bool real, Symm_t symm)
{
    std::vector<Index> rows, cols;
    std::vector<double> d;
    std::vector<cplx> z;
    for (const Entry& e : list) {
        rows.push_back(symm == RowStored ? e.col : e.row);
        cols.push_back(symm == RowStored ? e.row : e.col);
        d.push_back(e.val.real());
        z.push_back(e.val);
    }
    Sparse A;
    const Index sm = symm == RowStored ? n : m, sn = symm == RowStored ? m : n;
    if (real)
        A.triplet2sparse(rows, cols, d, sm, sn);
    else
        A.triplet2sparse(rows, cols, z, sm, sn);
    A.setSymm(symm);
    return A;
}

Sparse randomSparse(Index m, Index n, Index count, bool real, Symm_t symm, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<Entry> list;
    for (Index k = 0; k < count && m > 0 && n > 0; ++k) {
        const double re = value(random), im = value(random);
        const Index i = random() % m, j = random() % n;
        list.push_back({i, j, real ? cplx(re) : cplx(re, im)});
    }
    return sparseOf(m, n, list, real, symm);
}

Sparse randomDominant(Index n, Index count, bool real, Symm_t symm, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<Entry> list;
    for (Index k = 0; k < count; ++k) {
        const double re = value(random), im = value(random);
        const Index i = random() % n, j = random() % n;
        if (i != j)
            list.push_back({i, j, real ? cplx(re) : cplx(re, im)});
    }
    const double size = 2.0 + 3.0 * static_cast<double>(count) / static_cast<double>(n);
    for (Index i = 0; i < n; ++i)
        list.push_back({i, i, real || symm == Hermitian ? cplx(size + value(random)) : cplx(size, value(random))});
    return sparseOf(n, n, list, real, symm);
}

Matrix<1> randomVector(Index n, bool real, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    Matrix<1> x(n, real);
    for (Index i = 0; i < n; ++i) {
        if (real)
            x.getdArr()[i] = value(random);
        else
            x.getzArr()[i] = {value(random), value(random)};
    }
    return x;
}

namespace {

template <class T>
bool equalBytes(const T* a, const T* b, Index count)
{
    return count == 0 || std::memcmp(a, b, count * sizeof(T)) == 0;
}

} // namespace

testing::AssertionResult sameBits(const Sparse& a, const Sparse& b)
{
    if (a.isReal() != b.isReal() || a.getM() != b.getM() || a.getN() != b.getN() || a.getSymm() != b.getSymm() ||
        a.getForm() != b.getForm() || a.getNnz() != b.getNnz())
        return testing::AssertionFailure() << "type, size, symm, form or nnz differ: nnz " << a.getNnz() << " and "
                                           << b.getNnz() << ", form " << a.getForm() << " and " << b.getForm();
    const Index columns = a.getSymm() == RowStored ? a.getM() : a.getN();
    if (!equalBytes(a.getColPtr(), b.getColPtr(), columns + 1))
        return testing::AssertionFailure() << "colPtr differs";
    if (!equalBytes(a.getRow(), b.getRow(), a.getNnz()))
        return testing::AssertionFailure() << "row differs";
    const bool values = a.isReal() ? equalBytes(a.getDoubleVal(), b.getDoubleVal(), a.getNnz())
                                   : equalBytes(a.getDcmplxVal(), b.getDcmplxVal(), a.getNnz());
    return values ? testing::AssertionSuccess() : testing::AssertionFailure() << "val differs";
}

testing::AssertionResult sameBits(const Matrix<1>& a, const Matrix<1>& b)
{
    if (a.isReal() != b.isReal() || a.size() != b.size())
        return testing::AssertionFailure() << "type or size differ";
    for (Index i = 0; i < a.size(); ++i) {
        const cplx x = a[i], y = b[i];
        if (std::memcmp(&x, &y, sizeof x) != 0)
            return testing::AssertionFailure() << "element " << i << ": " << x << " and " << y << ", difference "
                                               << std::abs(x - y);
    }
    return testing::AssertionSuccess();
}

std::string raised(const std::function<void()>& f, bool source)
{
    try {
        f();
    } catch (const qxbase::Exception& e) {
        return source ? e.getFile(0) + ":" + e.getId() : e.getId();
    }
    return "";
}

std::string name(Symm_t symm)
{
    static const char* const names[] = {"Unsymmetric", "Symmetric", "Hermitian", "RowStored"};
    return names[symm];
}

} // namespace qxtest
