// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "matrixmarket.hpp"
#include "sparse.hpp"

#include <iostream>

namespace qxtest {

namespace {

using cplx = std::complex<double>;
const std::string operation = "Out_of_memory_operation_sparse_matrix", creation = "Out_of_memory_creating_sparse_matrix";

/// Two matrices of five rows, a vector, a result, triplets.
struct Matrices
{
    Sparse A, B, C;
    Matrix<1> x, y;
    std::vector<unsigned long> rows{0, 1, 2, 3, 4, 0, 4}, cols{0, 1, 2, 3, 4, 3, 1};
    std::vector<double> vals{4, 5, 6, 7, 8, -1, 2};
};

std::shared_ptr<Matrices> matrices()
{
    auto m = std::make_shared<Matrices>();
    m->A.triplet2sparse(m->rows, m->cols, m->vals, 5, 5);
    m->B.triplet2sparse(m->cols, m->rows, std::vector<cplx>(7, cplx(1.0, 2.0)), 5, 5);
    m->x = m->y = Matrix<1>(5, true);
    m->x = cplx(2.0);
    return m;
}

/// Both matrices have a second handle.
std::shared_ptr<Matrices> shared()
{
    auto m = matrices();
    m->C = m->A;
    return m;
}

void showMatrix(std::ostream& out, const Sparse& A)
{
    out << A.getM() << 'x' << A.getN() << ' ' << A.getSymm() << A.getForm() << A.isReal() << A.getHasParallel() << A.getHasExternal();
    const unsigned long columns = A.getSymm() == RowStored ? A.getM() : A.getN();
    for (unsigned long j = 0; A.getNnz() != 0 && j < columns; ++j)
        for (unsigned long p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p) {
            out << " (" << A.getRow()[p] << ',' << j << ") ";
            if (A.isReal())
                out << A.getDoubleVal()[p];
            else
                out << A.getDcmplxVal()[p];
        }
    out << '\n';
}

void show(std::ostream& out, const Matrices& m)
{
    for (const Sparse* A : {&m.A, &m.B, &m.C})
        showMatrix(out, *A);
    for (const Matrix<1>* v : {&m.x, &m.y})
        for (unsigned long i = 0; i < v->size(); ++i)
            out << (*v)[i] << ' ';
}

/// Without the order of the entries in their columns.
void showValues(std::ostream& out, const Matrices& m)
{
    for (const Sparse* A : {&m.A, &m.B, &m.C})
        for (unsigned long i = 0; i < 5; ++i) {
            Matrix<1> unit(5, true);
            unit.set(i, 1.0);
            const Matrix<1> column = A->getNnz() == 0 ? unit : *A * unit;
            for (unsigned long j = 0; j < 5; ++j)
                out << column[j] << ' ';
        }
}

} // namespace

std::vector<Call> sparseCalls()
{
    const auto boxed = [](const Sparse& A) { return boost::shared_ptr<Sparse>(new Sparse(A)); };
    return Module("sparse", operation)
        .add("plus", matrices, [](Matrices& m) { m.C = m.A + m.B; }, show)
        .add("minus", matrices, [](Matrices& m) { m.C = m.A - m.A; }, show)
        .add("times", matrices, [](Matrices& m) { m.C = m.A * m.B; }, show)
        .add("times a number", matrices, [](Matrices& m) { m.C = cplx(0.0, 1.0) * m.A; }, show)
        .add("times a vector", matrices, [](Matrices& m) { m.y = m.B * m.x; }, show)
        .add("mul transposed", matrices, [](Matrices& m) { m.C = mul(m.A, m.B, ConjTrans); }, show)
        .add("transpose", matrices, [](Matrices& m) { m.C = transpose(m.A, Trans); }, show)
        .add("hcat", matrices, [](Matrices& m) { m.C = hcat(m.A, m.B, false); }, show)
        .add("vcat", matrices, [](Matrices& m) { m.C = vcat(m.A, m.B, false); }, show)
        .add("hcat of a list", matrices, [boxed](Matrices& m) { m.C.hcat({boxed(m.A), boxed(m.B)}, 5); }, show)
        .failingBy(operation + " bad_alloc") // of the list, which the caller makes
        .add("subMatrix", matrices, [](Matrices& m) {
                 Array<int, 1> list(2);
                 list[0] = 3, list[1] = 1;
                 m.C = subMatrix(m.A, list, list);
             }, show)
        .failingBy(operation + " bad_alloc")
        .add("convertToRow", matrices, [](Matrices& m) { m.C = convertToRow(m.A); }, show)
        .add("addMat", shared, [](Matrices& m) { m.A.addMat(2.0, m.B, true); }, show)
        .add("multLeft", shared, [](Matrices& m) { m.A.multLeft(m.B, Trans, true); }, show)
        .add("mulRight", shared, [](Matrices& m) { m.A.mulRight(m.B, true); }, show)
        .add("scale by a complex number", shared, [](Matrices& m) { m.A.scale(cplx(1.0, 1.0)); }, show)
        .add("colscale", shared, [](Matrices& m) { m.A.colscale(m.x); }, show)
        .add("rowscaleInv", shared, [](Matrices& m) { m.A.rowscaleInv(m.x); }, show)
        .add("setElem", shared, [](Matrices& m) { m.A.setElem(2, 4, cplx(1.0, 3.0)); }, show)
        .add("setElem beyond", matrices, [](Matrices& m) { m.A.setElem(70, 80, 1.0); }, show)
        .add("format", shared, [](Matrices& m) { m.A.format(FormSortedDiag, false); }, showValues)
        .add("makeSymmetric", shared, [](Matrices& m) { m.A.makeSymmetric(Trans); }, show)
        .add("reshape", shared, [](Matrices& m) { m.A.reshape(25, 1); }, show)
        .add("removeZeroCols", shared, [](Matrices& m) { m.A.removeZeroCols(); }, show)
        .add("real2complex", shared, [](Matrices& m) { m.A.real2complex(); }, show)
        .add("eye", matrices, [](Matrices& m) { m.C.eye(7); }, show)
        .add("zeros", matrices, [](Matrices& m) { m.C.zeros(3, 4, 5, true); }, show)
        .add("triplet2sparse", matrices, [](Matrices& m) { m.C.triplet2sparse(m.rows, m.cols, m.vals, 5, 5); }, show)
        .failingBy(creation)
        .add("flat2sparse", matrices, [](Matrices& m) {
                 m.C.flat2sparse({0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}, m.x, 5, 5);
             }, show)
        .failingBy(creation + " bad_alloc")
        .add("getParallelSparse", matrices, [](Matrices& m) { m.A.getParallelSparse(); }, show)
        .add("getExternalSparse", matrices, [](Matrices& m) { m.A.getExternalSparse(); }, show)
        .add("readMatrixMarket", matrices, [](Matrices& m) {
                 std::istringstream in("%%MatrixMarket matrix coordinate real general\n3 3 4\n1 1 2\n2 2 3\n3 3 4\n1 3 -1\n");
                 m.C = readMatrixMarket(in, "a.mtx");
             }, show)
        .failingBy(creation + " bad_alloc")
        .add("writeMatrixMarket", matrices, [](Matrices& m) {
                 std::ostringstream out;
                 writeMatrixMarket(out, m.A);
             }, show)
        .failingBy(creation + " Cannot_write_matrix_file") // the latter where the stream of the caller has no memory
        .calls();
}

} // namespace qxtest
