// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "arrayutil.hpp"
#include "krylov.hpp"
#include "matrix.hpp"

#include <complex>

namespace qxtest {

namespace {

using cplx = std::complex<double>;

/// A system of n unknowns with whatever its solution needs.
template <class T>
struct System
{
    Array<T, 2> A, U, V;
    Array<T, 1> b, x;
    Array<double, 1> s;
    Array<int, 1> ipiv;
};

template <class T>
std::shared_ptr<System<T>> system()
{
    constexpr unsigned long n = 70; // smaller systems are solved on the stack
    auto s = std::make_shared<System<T>>();
    s->A = Array<T, 2>(n, n);
    s->b = Array<T, 1>(n);
    for (unsigned long j = 0; j < n; ++j) {
        s->b[j] = T(1.0 + static_cast<double>(j));
        for (unsigned long i = 0; i < n; ++i)
            s->A(i, j) = T(1.0 / (1.0 + static_cast<double>(i + 2 * j)) + (i == j ? 2.0 : 0.0));
    }
    return s;
}

/// What goes in, which is kept; results may have lost their contents.
template <class T>
void show(std::ostream& out, const System<T>& s)
{
    showAll(out, s.A);
    showAll(out, s.b);
}

/// Two handles on one block.
struct Shared
{
    Matrix<1> x, y;
    Matrix<2> A;
};

std::shared_ptr<Shared> sharedVectors()
{
    auto s = std::make_shared<Shared>();
    s->x = Matrix<1>(5, true);
    for (unsigned long i = 0; i < 5; ++i)
        s->x.set(i, static_cast<double>(i));
    s->y = s->x;
    s->A = Matrix<2>(5, 5, true);
    for (unsigned long i = 0; i < 5; ++i)
        s->A.set(i, i, 2.0 + static_cast<double>(i));
    return s;
}

void showShared(std::ostream& out, const Shared& s)
{
    for (const Matrix<1>* v : {&s.x, &s.y})
        for (unsigned long i = 0; i < v->size(); ++i)
            out << (*v)[i] << ' ';
    for (unsigned long i = 0; i < s.A.size(); ++i)
        out << s.A[i] << ' ';
    out << s.x.isReal() << s.y.isReal();
}

template <class T>
void addFrontEnds(Module& dense, const std::string& type)
{
    const auto make = [] { return system<T>(); };
    const auto showIt = [](std::ostream& out, const System<T>& s) { show(out, s); };
    dense.add("linsolv " + type, make, [](System<T>& s) { qxarray::linsolv(s.A, s.b, 3); }, showIt)
        .add("lu " + type, make, [](System<T>& s) { qxarray::lu(s.A, s.ipiv, 3); }, showIt)
        .add("qr " + type, make, [](System<T>& s) { qxarray::qr(s.A, s.x, 3); }, showIt)
        .add("svd " + type, make, [](System<T>& s) { qxarray::svd("A", "A", s.A, s.U, s.s, s.V, 3); }, showIt)
        .add("rank " + type, make, [](System<T>& s) { qxarray::rank(s.A, 1e-10); }, showIt)
        .add("leastSquares " + type, make, [](System<T>& s) { qxarray::leastSquares(s.A, s.b, s.x, 1e-12, 3); }, showIt)
        .add("schur " + type, make, [](System<T>& s) { qxarray::schur(s.A, s.U, true); }, showIt)
        .add("hess " + type, make, [](System<T>& s) { qxarray::hess(s.A, s.U, true); }, showIt)
        .add("generalizedHess " + type, [make] {
                 auto s = make();
                 s->V = s->A;
                 return s;
             }, [](System<T>& s) {
                 Array<T, 2> Q, Z;
                 qxarray::generalizedHess(s.A, s.V, Q, Z);
             }, showIt)
        .add("adjoint " + type, make, [](System<T>& s) { qxarray::adjoint(s.A, s.U); }, showIt);
}

} // namespace

std::vector<Call> denseCalls()
{
    Module dense("dense", "bad_alloc");
    addFrontEnds<double>(dense, "real");
    addFrontEnds<cplx>(dense, "complex");
    const auto real = [] { return system<double>(); };
    const auto showReal = [](std::ostream& out, const System<double>& s) { show(out, s); };
    dense.add("eig real", real, [](auto& s) { qxarray::eig("V", "V", s.A, s.s, s.x, s.U, s.V, 3); }, showReal)
        .add("eig of a pencil", [real] {
                 auto s = real();
                 s->V = s->A;
                 return s;
             }, [](auto& s) {
                 Array<double, 1> beta;
                 qxarray::eig(s.A, s.V, s.s, s.x, beta, 3);
             }, showReal)
        .add("eig complex", [] { return system<cplx>(); }, [](auto& s) { qxarray::eig("V", "V", s.A, s.x, s.U, s.V, 3); },
             [](std::ostream& out, const System<cplx>& s) { show(out, s); })
        .add("roots", real, [](auto& s) { qxarray::roots(s.b, s.x, s.s, 3); }, showReal)
        .add("Matrix set of a shared block", sharedVectors, [](Shared& s) { s.x.set(1, 7.0); }, showShared)
        .add("Matrix set of a complex number", sharedVectors, [](Shared& s) { s.x.set(1, cplx(7.0, 1.0)); }, showShared)
        .add("Matrix real2complex", sharedVectors, [](Shared& s) { s.x.real2complex(); }, showShared)
        .add("Matrix trueCopy", sharedVectors, [](Shared& s) { s.y.trueCopy(s.x, false); }, showShared)
        .add("Matrix yPlusaMulx", sharedVectors, [](Shared& s) { yPlusaMulx(s.y, cplx(0.0, 1.0), s.x); }, showShared)
        .add("Matrix hcat", sharedVectors, [](Shared& s) { s.A = hcat({s.x, s.y}); }, showShared)
        .add("Matrix linsolv", sharedVectors, [](Shared& s) { linsolv(s.A, s.x, 3); }, showShared)
        .add("gmres", sharedVectors, [](Shared& s) {
                 double flops = 0;
                 Matrix<1> x(5, true);
                 gmres(s.A, s.x, x, 1e-12, 5, 1.0, 20, flops);
                 s.y = x;
             }, showShared);
    return dense.calls();
}

} // namespace qxtest
