// SPDX-License-Identifier: LicenseRef-qxkernel
#include "constrained.hpp"

#include "qxexception.hpp"
#include "qxnull.hpp"
#include "qxnumber.hpp"
#include "qxrun.hpp"
#include "solvers/expand_detail.hpp"
#include "umfpack.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <new>
#include <set>
#include <type_traits>

namespace qx {

using qxsolvers_detail::expanded;

namespace {

using cplx = std::complex<double>;

/// A sum that should be 0 may differ from it by this share of the magnitudes in it.
constexpr double kRounding = 1e-9;
/// A solution that a second look at the residual would change by more has no digits: singular but for rounding.
constexpr double kNoDigits = 1e-2;
/// A pivot is at least this share of the largest entry.
constexpr double kLargeEnough = 0.1;
constexpr std::size_t kNamed = 20;

/// f(); when memory runs out, an identifier is raised.
template <class F>
decltype(auto) guarded(const F& f)
{
    try {
        return f();
    } catch (const std::bad_alloc&) {
    } catch (const qxbase::Exception& e) { // that of the matrices becomes one of this module; the solvers keep theirs
        if (!e.getId().starts_with("Out_of_memory_") || e.getFile(0) == "umfpack")
            throw;
    }
    QX_RAISE("constrained", "Out_of_memory_constraint_elimination");
}

void requireCount(const char* name, std::size_t expected, std::size_t found)
{
    if (found != expected)
        QX_RAISE("constrained", "Wrong_number_of_values",
                 qxbase::ExceptionArgs{
                     {"Name", name}, {"Expected", std::to_string(expected)}, {"Found", std::to_string(found)}});
}

template <class T>
void requireReal(const char* name, const Sparse& A)
{
    if (std::is_same_v<T, double> && !A.isReal())
        QX_RAISE("constrained", "Complex_matrix_for_real_values", "Name", name);
}

template <class T>
Matrix<1> matrixOf(std::span<const T> v)
{
    Matrix<1> m(v.size(), std::is_same_v<T, double>);
    for (std::size_t i = 0; i < v.size(); ++i)
        m.set(i, v[i]);
    return m;
}

template <class T>
std::vector<T> vectorOf(const Matrix<1>& m)
{
    std::vector<T> v(m.size());
    for (std::size_t i = 0; i < v.size(); ++i)
        if constexpr (std::is_same_v<T, double>)
            v[i] = m[i].real();
        else
            v[i] = m[i];
    return v;
}

template <class T>
std::vector<T> product(const Sparse& A, std::span<const T> x, Trans_t trans)
{
    requireReal<T>("A", A);
    const unsigned long size = trans == NoTrans ? A.getN() : A.getM();
    requireCount("x", size, x.size());
    return vectorOf<T>(AMulx(A, matrixOf(x), trans));
}

template <class T>
std::vector<T> product(const Sparse& A, const std::vector<T>& x, Trans_t trans)
{
    return product(A, std::span<const T>(x), trans);
}

template <class T>
double norm(const std::vector<T>& v)
{
    double sum = 0.0;
    for (const T& x : v)
        sum += std::norm(x);
    return std::sqrt(sum);
}

template <class T>
std::vector<T> difference(std::span<const T> a, const std::vector<T>& b)
{
    std::vector<T> d(a.begin(), a.end());
    for (std::size_t i = 0; i < d.size(); ++i)
        d[i] -= b[i];
    return d;
}

/// The numbers of a column store by index.
cplx entry(const Sparse& A, unsigned long k) { return A.isReal() ? cplx(A.getDoubleVal()[k]) : A.getDcmplxVal()[k]; }

/// Sums of constraints that are 0 on the left side: N sums = 0.
Sparse dependenciesOf(const Sparse& N, const NullSpaceOptions& options)
{
    return nullSpace(transpose(N, ConjTrans), {.run = options.run}).null;
}

/// For each sum one constraint that the others can replace: without these the rest is independent. Gauss elimination on the
/// sums, which are few; the last constraint is taken whose factor is not small.
std::vector<std::size_t> replaceableConstraints(const Sparse& sums)
{
    std::vector<std::map<unsigned long, cplx>> columns(sums.getN());
    std::map<unsigned long, std::set<unsigned long>> columnsOfRow;
    for (unsigned long j = 0; j < sums.getN(); ++j)
        for (unsigned long k = sums.getColPtr()[j]; k < sums.getColPtr()[j + 1]; ++k) {
            columns[j].emplace(sums.getRow()[k], entry(sums, k));
            columnsOfRow[sums.getRow()[k]].insert(j);
        }
    std::vector<std::size_t> chosen;
    for (unsigned long j = 0; j < columns.size(); ++j) {
        double largest = 0.0;
        for (const auto& part : columns[j])
            largest = std::max(largest, std::abs(part.second));
        if (largest == 0.0)
            QX_RAISE("constrained", "Internal_error_solver", "Dependent_constraints_not_told_apart");
        const auto last = std::find_if(columns[j].rbegin(), columns[j].rend(), [&](const auto& part) {
            return std::abs(part.second) >= kLargeEnough * largest;
        });
        const auto pivot = std::prev(last.base());
        chosen.push_back(pivot->first);
        for (const unsigned long other : columnsOfRow[pivot->first]) {
            if (other <= j)
                continue;
            const cplx factor = columns[other][pivot->first] / pivot->second;
            for (const auto& [row, value] : columns[j]) {
                columns[other][row] -= factor * value;
                columnsOfRow[row].insert(other);
            }
            columns[other].erase(pivot->first);
        }
    }
    return chosen;
}

/// Raises if sum^H g is not 0 for one of the sums.
template <class T>
void refuseContradictions(const Sparse& sums, const std::vector<std::size_t>& own, std::span<const T> g)
{
    double largest = 0.0;
    for (const T& value : g)
        largest = std::max(largest, std::abs(value));
    for (unsigned long j = 0; j < sums.getN(); ++j) {
        cplx total = 0.0, scale = 1.0;
        double size = 0.0;
        std::string others;
        std::size_t named = 0;
        for (unsigned long k = sums.getColPtr()[j]; k < sums.getColPtr()[j + 1]; ++k) {
            const unsigned long constraint = sums.getRow()[k];
            const cplx factor = std::conj(entry(sums, k));
            total += factor * g[constraint];
            size += std::abs(factor) * largest;
            if (constraint == own[j])
                scale = factor;
            else if (++named <= kNamed)
                others += (others.empty() ? "" : " ") + std::to_string(constraint);
        }
        if (std::abs(total) <= kRounding * size)
            continue;
        const auto text = [](const cplx& z) {
            return z.imag() == 0.0 ? qxutil::toString(z.real()) : qxutil::toString(z);
        };
        QX_RAISE("constrained", "Contradicting_constraints",
                 qxbase::ExceptionArgs{{"Constraint", std::to_string(own[j])},
                                       {"With", others},
                                       {"Others", std::to_string(named)},
                                       {"Difference", text(total / scale)},
                                       {"Value", text(g[own[j]])}});
    }
}

/// N without some of its columns.
Sparse without(const Sparse& N, const std::vector<std::size_t>& dropped)
{
    Array<int, 1> rows(N.getM()), columns(N.getN() - dropped.size());
    for (unsigned long i = 0; i < N.getM(); ++i)
        rows(i) = static_cast<int>(i);
    unsigned long kept = 0;
    for (unsigned long j = 0; j < N.getN(); ++j)
        if (!std::binary_search(dropped.begin(), dropped.end(), j))
            columns(kept++) = static_cast<int>(j);
    return subMatrix(N, rows, columns);
}

template <class T>
Admissible<T> admissibleAny(const Sparse& given, std::span<const T> g, const NullSpaceOptions& options)
{
    requireCount("g", given.getN(), g.size());
    requireReal<T>("N", given);
    const Sparse N = expanded(given);
    Admissible<T> a;
    a.space = nullSpace(N, options);
    a.particular.assign(N.getM(), T(0.0));
    std::vector<T> independent(g.begin(), g.end());
    if (a.space.complement.getN() < N.getN()) {
        const Sparse sums = dependenciesOf(N, options);
        const std::vector<std::size_t> own = replaceableConstraints(sums);
        refuseContradictions(sums, own, g);
        a.dropped = own;
        std::sort(a.dropped.begin(), a.dropped.end());
        for (auto d = a.dropped.rbegin(); d != a.dropped.rend(); ++d)
            independent.erase(independent.begin() + static_cast<std::ptrdiff_t>(*d));
        a.space = nullSpace(without(N, a.dropped), options);
    }
    if (a.space.complement.getN() == 0)
        return a;
    requireCount("independent constraints", a.space.complement.getN(), independent.size());
    // Range^H y = g, u = Compl y
    Factor range(transpose(a.space.range, ConjTrans), {.run = options.run});
    a.particular = product(a.space.complement, range.solve(std::span<const T>(independent)), NoTrans);
    return a;
}

template <class T>
Constrained<T> solveAny(const Sparse& givenK, std::span<const T> f, const Sparse& N, std::span<const T> g,
                        const NullSpaceOptions& options)
{
    requireCount("columns of K", givenK.getM(), givenK.getN());
    requireCount("f", givenK.getM(), f.size());
    requireReal<T>("K", givenK);
    const bool free = N.getN() == 0;
    if (!free)
        requireCount("rows of N", givenK.getM(), N.getM());
    requireCount("g", N.getN(), g.size());

    const Sparse K = expanded(givenK);
    Admissible<T> a;
    if (free) {
        a.particular.assign(f.size(), T(0.0));
        a.space.null.eye(f.size());
    } else {
        a = admissibleAny(N, g, options);
    }
    const Sparse& null = a.space.null;
    Constrained<T> s{a.particular, 0.0, a.dropped, null.getN()};
    if (null.getN() == 0)
        return s;
    // Null^H K Null z = Null^H (f - K particular)
    const std::vector<T> r = product(null, difference(f, product(K, s.u, NoTrans)), ConjTrans);
    Factor reduced(free ? K : transpose(null, ConjTrans) * (K * null), {.run = options.run});
    const std::vector<T> step = product(null, reduced.solve(std::span<const T>(r)), NoTrans);
    for (std::size_t i = 0; i < s.u.size(); ++i)
        s.u[i] += step[i];
    const std::vector<T> wanted = product(null, std::vector<T>(f.begin(), f.end()), ConjTrans);
    const std::vector<T> found = product(null, product(K, s.u, NoTrans), ConjTrans);
    s.residual = norm(difference(std::span<const T>(wanted), found));
    if (const double size = norm(wanted) + norm(found); size != 0.0)
        s.residual /= size;
    return s;
}

} // namespace

Factor::Factor(const Sparse& A, const FactorOptions& options)
    : silent_(options.run == nullptr ? std::make_unique<qxutil::RunInfo>() : nullptr),
      solver_(std::make_unique<Umfpack>(options.run == nullptr ? *silent_ : *options.run)), size_(A.getM()),
      real_(A.isReal()), accurate_(options.accurate)
{
    Sparse shared(A);
    solver_->init(shared, false, options.transposed, false, true);
}

Factor::~Factor() = default;
Factor::Factor(Factor&&) noexcept = default;
Factor& Factor::operator=(Factor&&) noexcept = default;

template <class T>
std::vector<T> Factor::solveAny(std::span<const T> b)
{
    requireCount("b", size_, b.size());
    if (std::is_same_v<T, double> && !real_)
        QX_RAISE("constrained", "Complex_matrix_for_real_values", "Name", "A");
    const Matrix<1> rhs = matrixOf(b);
    Matrix<1> x;
    solver_->solve(rhs, x);
    if (accurate_) {
        constexpr double any = std::numeric_limits<double>::infinity();
        double residual = 0.0;
        solver_->checkTolerances(x, rhs, any, any, residual, error_);
        if (error_ > kNoDigits)
            QX_RAISE("constrained", "Singular_matrix", "Estimated_error", qxutil::toString(error_));
    }
    return vectorOf<T>(x);
}

std::vector<double> Factor::solve(std::span<const double> b) { return solveAny(b); }
std::vector<cplx> Factor::solve(std::span<const cplx> b) { return solveAny(b); }

NullSpace nullSpace(const Sparse& N, const NullSpaceOptions& options)
{
    return guarded([&] {
        qxutil::RunInfo silent;
        NullSpace s;
        Sparse unused;
        qxNull(options.run == nullptr ? silent : *options.run, N, Sparse(), Sparse(), true, s.null, true, s.complement, true,
               s.range, unused, false, unused, false, unused, false,
               options.orthonormal ? NullFunOrthonormal : NullFunSparse, false);
        return s;
    });
}

std::vector<double> multiply(const Sparse& A, std::span<const double> x, Trans_t trans)
{
    return product(A, x, trans);
}

std::vector<cplx> multiply(const Sparse& A, std::span<const cplx> x, Trans_t trans)
{
    return product(A, x, trans);
}

Admissible<double> admissible(const Sparse& N, std::span<const double> g, const NullSpaceOptions& options)
{
    return guarded([&] { return admissibleAny(N, g, options); });
}

Admissible<cplx> admissible(const Sparse& N, std::span<const cplx> g, const NullSpaceOptions& options)
{
    return guarded([&] { return admissibleAny(N, g, options); });
}

Constrained<double> solveConstrained(const Sparse& K, std::span<const double> f, const Sparse& N,
                                     std::span<const double> g, const NullSpaceOptions& options)
{
    return guarded([&] { return solveAny(K, f, N, g, options); });
}

Constrained<cplx> solveConstrained(const Sparse& K, std::span<const cplx> f, const Sparse& N, std::span<const cplx> g,
                                   const NullSpaceOptions& options)
{
    return guarded([&] { return solveAny(K, f, N, g, options); });
}

} // namespace qx
