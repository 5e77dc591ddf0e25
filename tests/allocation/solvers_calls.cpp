// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "constrained.hpp"
#include "prop.hpp"
#include "qxnull.hpp"
#include "qxrun.hpp"
#include "tests/solvers/sparse_values.hpp"
#include "umfpack.hpp"

namespace qxtest {

namespace {

const std::string solver = "Out_of_memory_LU_factorization Out_of_memory_operation_sparse_matrix Out_of_memory_back_substitution "
                           "Out_of_memory_creating_sparse_matrix",
                  elimination = "Out_of_memory_constraint_elimination";

using solverstest::sparseOf;

/// A system, constraints, and what comes of them.
struct Problem
{
    Sparse K = sparseOf({{4, -1, 0, 0}, {-1, 4, -1, 0}, {0, -1, 4, -1}, {0, 0, -1, 4}});
    Sparse N = sparseOf({{1, 0, 2}, {1, 0, 2}, {0, 0, 0}, {0, 1, 0}});
    std::vector<double> f{1, 2, 3, 4}, g{0, 3, 0}, u;
    Sparse L, U, P, Q, R;
    qxutil::RunInfo run;
    Umfpack umfpack{run};
    Matrix<1> b{4, true}, x{4, true};
    qxbase::Prop in, out;

    Problem() { b = std::complex<double>(2.0); }
};

std::shared_ptr<Problem> problem() { return std::make_shared<Problem>(); }

std::shared_ptr<Problem> factorised()
{
    auto p = problem();
    p->umfpack.init(p->K, false, false, false, true);
    return p;
}

std::shared_ptr<Problem> withProperties()
{
    auto p = problem();
    p->in.setany("n", p->N);
    return p;
}

void show(std::ostream& out, const Problem& p)
{
    for (const Sparse* A : {&p.K, &p.N, &p.L, &p.U, &p.P, &p.Q, &p.R})
        for (const auto& row : solverstest::denseOf(*A))
            showAll(out, row);
    for (const auto* v : {&p.f, &p.g, &p.u})
        showAll(out, *v);
    for (const Matrix<1>* v : {&p.b, &p.x})
        for (unsigned long i = 0; i < v->size(); ++i)
            out << (*v)[i] << ' ';
    showAll(out, p.out.getKeys());
}

} // namespace

std::vector<Call> solversCalls()
{
    return Module("solvers", solver)
        .add("Umfpack init", problem, [](Problem& p) { p.umfpack.init(p.K, false, false, false, true); }, show)
        .add("Umfpack init that clears", problem, [](Problem& p) {
                 Sparse A = p.K;
                 p.umfpack.init(A, true, true, false, true);
             }, show)
        .add("Umfpack getLuFactorization", factorised, [](Problem& p) { p.umfpack.getLuFactorization(p.L, p.U, p.P, p.Q, p.R); }, show)
        .add("Factor", problem, [](Problem& p) { p.u = qx::Factor(p.K).solve(p.f); }, show)
        .failingBy(solver + " bad_alloc")
        .add("nullSpace", problem, [](Problem& p) { p.U = qx::nullSpace(p.N).null; }, show)
        .failingBy(elimination)
        .add("nullSpace orthonormal", problem, [](Problem& p) { p.U = qx::nullSpace(p.N, {.orthonormal = true}).null; }, show)
        .failingBy(elimination)
        .add("qxNull by properties", withProperties, [](Problem& p) { qxNull(p.run, p.in, p.out); }, show)
        .failingBy(elimination)
        .add("admissible", problem, [](Problem& p) { p.u = qx::admissible(p.N, std::span<const double>(p.g)).particular; }, show)
        .failingBy(elimination + " Out_of_memory_back_substitution Out_of_memory_LU_factorization")
        .add("solveConstrained", problem, [](Problem& p) {
                 p.u = qx::solveConstrained(p.K, std::span<const double>(p.f), p.N, std::span<const double>(p.g)).u;
             }, show)
        .failingBy(elimination + ' ' + solver)
        .calls();
}

} // namespace qxtest
