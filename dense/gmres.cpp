// SPDX-License-Identifier: LicenseRef-qxkernel
#include "krylov.hpp"

#include "arrayutil.hpp"
#include "dense/gmres_detail.hpp"
#include "qxexception.hpp"

using namespace qxarray_detail;

namespace {

[[noreturn]] void refuseSize(const char* detail)
{
    QX_RAISE("arrayutil", "Internal_numerical_error", detail);
}

double* reals(Array<cplx, 1>& x) { return reinterpret_cast<double*>(x.data()); }

CBLAS_TRANSPOSE blasTrans(Trans_t trans)
{
    return trans == NoTrans ? CblasNoTrans : trans == Trans ? CblasTrans : CblasConjTrans;
}

/// y += op(A) x for a real A: real and imaginary parts are vectors with stride 2.
void realTimesComplex(cplx* y, const double* A, int lda, const cplx* x, Trans_t trans, int m, int n)
{
    for (int part = 0; part < 2; ++part)
        cblas_dgemv(CblasColMajor, blasTrans(trans), m, n, 1.0, A, lda, reinterpret_cast<const double*>(x) + part, 2, 1.0,
                    reinterpret_cast<double*>(y) + part, 2);
}

/// flops of a product with an (m, n) matrix, in units of m n.
double flopsPerEntry(bool realA, bool realX) { return realA && realX ? 2.0 : realA || realX ? 4.0 : 8.0; }

} // namespace

void yPlusAMulx(Matrix<1>& y, const Matrix<2>& A, const Matrix<1>& x, double& flops, Trans_t trans, int m, int n)
{
    const unsigned long rowsA = A.size(0), columnsA = A.size(1);
    const unsigned long usedRows = m < 0 ? rowsA : static_cast<unsigned long>(m);
    const unsigned long usedColumns = n < 0 ? columnsA : static_cast<unsigned long>(n);
    if (usedRows > rowsA || usedColumns > columnsA)
        refuseSize("yPlusAMulx: Size of A less than required by m and n.");
    if (y.size() < (trans == NoTrans ? usedRows : usedColumns) || x.size() < (trans == NoTrans ? usedColumns : usedRows))
        refuseSize("yPlusAMulx: Size of x or y less than required by m and n.");

    Matrix<1> operand(x); // y may be x, or share its array
    const bool realA = A.isReal(), realX = x.isReal();
    if (!realA && realX) {
        operand.setNoRealloc(false);
        operand.real2complex();
    }
    if (!realA || !realX)
        y.real2complex();
    const double entries = static_cast<double>(usedRows) * static_cast<double>(usedColumns);
    if (entries != 0.0) {
        if (y.isReal())
            qxarray::yPlusAMulx(y.getdArr(), A.gethdArr(), operand.gethdArr(), trans, usedRows, usedColumns);
        else if (!realA)
            qxarray::yPlusAMulx(y.getzArr(), A.gethzArr(), operand.gethzArr(), trans, usedRows, usedColumns);
        else if (!realX)
            realTimesComplex(y.getzArr().data(), A.gethdArr().data(), leading(A.gethdArr()), operand.gethzArr().data(), trans,
                             lapackInt(usedRows), lapackInt(usedColumns));
        else // into the real parts
            cblas_dgemv(CblasColMajor, blasTrans(trans), lapackInt(usedRows), lapackInt(usedColumns), 1.0,
                        A.gethdArr().data(), leading(A.gethdArr()), operand.gethdArr().data(), 1, 1.0, reals(y.getzArr()), 2);
    }
    flops += flopsPerEntry(realA, realX) * entries;
}

int gmres(const Matrix<2>& A, const Matrix<1>& b, Matrix<1>& x, double tol, int m, double scale, int maxIts, double& flops)
{
    const auto refuse = [](const char* detail) { QX_RAISE("matrix", "Internal_error_solver", detail); };
    const unsigned long n = A.size(0);
    if (A.size(1) != n)
        refuse("gmres: Matrix is not square.");
    if (b.size() != n || x.size() != n)
        refuse("gmres: RHS or initial guess has wrong size.");
    if (m < 1)
        refuse("gmres: Size of the Krylov space is less than 1.");
    const int size = lapackInt(n), lda = std::max(1, size);
    const double cost = static_cast<double>(n) * static_cast<double>(n);
    const auto ignore = [](unsigned long, double) {};
    double count = 0.0;
    int status;
    if (A.isReal() && b.isReal() && x.isReal()) {
        Gmres<double> solver(n, static_cast<unsigned long>(m), b);
        const double* a = A.gethdArr().data();
        status = solver.solve(
            [&](const double* v, double* y) {
                Blas<double>::gemv(CblasNoTrans, size, size, a, lda, v, y);
                count += flopsPerEntry(true, true) * cost;
            },
            x.getdArr(), tol, scale, maxIts, ignore);
    } else {
        Gmres<cplx> solver(n, static_cast<unsigned long>(m), b);
        status = solver.solve(
            [&](const cplx* v, cplx* y) {
                if (A.isReal())
                    realTimesComplex(y, A.gethdArr().data(), lda, v, NoTrans, size, size);
                else
                    Blas<cplx>::gemv(CblasNoTrans, size, size, A.gethzArr().data(), lda, v, y);
                count += flopsPerEntry(A.isReal(), false) * cost;
            },
            x.getzArr(), tol, scale, maxIts, ignore); // promoted after all that can fail, but before the first residual
    }
    flops += count;
    return status;
}
