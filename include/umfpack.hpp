// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "matrix.hpp"
#include "qxexport.hpp"
#include "sparse.hpp"

#include <boost/shared_ptr.hpp>
#include <complex>

namespace qxutil {
class RunInfo;
class RunLog;
} // namespace qxutil

/// Sparse direct solver: P R A Q = L U by the multifrontal method of UMFPACK, then any number of solutions.
///
///     Umfpack solver(runInfo);
///     solver.init(A, false, false, false, true);
///     solver.solve(b, x);
///
/// The matrix is copied: A may change or go afterwards. Symmetric and Hermitian stores are expanded to the matrix they
/// stand for, row stores are turned, duplicate entries are summed. A complex system is solved if A or b is complex.
///
/// Failures come from "umfpack". Factorising: "Matrix_not_square", "Matrix_is_zero", "Singular_matrix" (NaN and infinite
/// entries too), "Out_of_memory_LU_factorization", "Out_of_memory_operation_sparse_matrix",
/// "Internal_error_in_memory_handler", "Error_in_umfpack_internal", "Linear_solver_cancelled" as a
/// qxbase::CancelException with "<CANCEL>" in front, "Error_in_umfpack_initialization" (constructor). Solving:
/// "Singular_matrix", "Out_of_memory_back_substitution", "Undefined_value_found_Linsolv". Everything else, a solve
/// without a factorisation or with a vector of the wrong length included: "Internal_error_in_UMFPACK", with "Error_code"
/// where UMFPACK gave one; in a library built without UMFPACK (QX_WITH_UMFPACK=OFF) all of these operations raise it, with
/// "Reason", and touch no operand. After a failed init the object holds no factors; init may be called again.
///
/// Cancelling: a raised flag of the RunInfo ends init at the next call of BLAS or of the allocator. Progress, the share of
/// the arithmetic that the analysis predicts, and the parameter "Step" (1 analysis, 2 factorisation) go to a RunLog with
/// the title "UMFPACK". The listener hears of each further hundredth from between two calls of BLAS: it may cancel or
/// raise, but must not use a solver.
///
/// Memory: UMFPACK's own, and a copy of the matrix: 16 bytes an entry, 24 for complex ones, kept for the refinement of
/// solutions. With clearInput the caller's matrix goes before the factorisation begins.
/// Threads: BLAS works with one thread while a matrix is factorised, so the same matrix gives the same bits whatever the
/// number of threads. An object belongs to one thread at a time; objects of different
/// threads do not disturb each other, since the memory contexts beneath are per thread.
/// Source: Davis, Algorithm 832: UMFPACK V4.3, ACM TOMS 30 (2004) 196-199.
class QX_API Umfpack
{
public:
    /// Entries of L and U up to dropTol are dropped (0: none), a pivot is at least threshold (0..1) times the largest of
    /// its column, allocInit is the first guess of the memory in units of UMFPACK's estimate. runInfo is lent for the
    /// life of the object.
    Umfpack(qxutil::RunInfo& runInfo, double dropTol, double threshold, double allocInit);
    /// dropTol 0, threshold 0.1, allocInit 0.7.
    explicit Umfpack(qxutil::RunInfo& runInfo);
    ~Umfpack();
    Umfpack(const Umfpack&) = delete;
    Umfpack& operator=(const Umfpack&) = delete;

    /// Factorises. A without rows or columns: done at once, solve then copies b.
    ///
    /// clearInput: A is emptied as soon as it has been copied, also if the factorisation fails afterwards.
    /// transpose: solve solves with the transpose of A (never conjugated).
    /// allowSingular: singular, zero and rectangular matrices are accepted, for getLuFactorization; solve raises. Explicit
    /// zeros are left out then.
    /// scale: rows are divided by the sum of their magnitudes first.
    /// The entries of A's store are sorted by row; no entry changes.
    void init(Sparse& A, bool clearInput, bool transpose, bool allowSingular, bool scale);

    /// Solves A x = b, or with the transpose of A, and refines x. Returns 1. x is resized; x may be b.
    ///
    /// The matrix form promotes x when the factors or b are complex and looks for NaN and infinities in x; the array
    /// forms do not look. The real array form refuses complex factors.
    int solve(const Matrix<1>& b, Matrix<1>& x);
    int solve(const Array<double, 1>& b, Array<double, 1>& x);
    int solve(const Array<std::complex<double>, 1>& b, Array<std::complex<double>, 1>& x);

    /// res = |A x - b| / |b| (2-norms; absolute if b is 0). Returns -15 if it exceeds tolRes. Otherwise, with e the
    /// solution for the residual, err = |e| / |x| (absolute if x is 0): returns -16 if it exceeds tolErr, 1 if not. NaN
    /// exceeds nothing.
    int checkTolerances(const Matrix<1>& x, const Matrix<1>& b, double tolRes, double tolErr, double& res, double& err);

    /// The factors, L U = P R A Q: L (m, k) unit lower, U (k, n) upper, k = min(m, n), all by columns; P (m, m) and
    /// Q (n, n) permutations, R (m, m) the diagonal row scaling.
    void getLuFactorization(Sparse& L, Sparse& U, Sparse& P, Sparse& Q, Sparse& R) const;

    /// Whether solve works with the transpose; no new factorisation.
    void setTranspose(bool value);
    /// For the next init.
    void setThreshold(double value) { threshold = value; }
    void setAllocInit(double value) { allocInit = value; }
    /// Threads for the next init. 1, as at first: BLAS works with one thread, and the large products of the factorisation
    /// are divided among at most 16 of the AVAILABLETHREADS, with the same bits for any number. Other values leave the
    /// choice to BLAS, 0 with its own number of threads, n with n: bits may then depend on it. With a shared UMFPACK there
    /// is nothing to divide, and 1 means one thread. Negative values mean 0.
    void setBlasThreads(int value) { blasThreads = value < 0 ? 0 : value; }
    /// Releases factors and copies.
    void clear();

private:
    void umfpackInit();
    void sparse2umfpack(const Sparse& A, bool allowSingular);
    void setDefaults();
    void factoriseWithLog(bool allowSingular, bool scale);
    void luUmfpack(bool allowSingular, bool scale);
    void luFactorization(Sparse& L, Sparse& U, Sparse& P, Sparse& Q, Sparse& R) const;
    void forgetAfterJump();
    void freeSymbolic();
    void freeNumeric();
    void checkRightHandSide(unsigned long length) const;
    void solveReal(const double* b, double* x);
    template <class T>
    int checkTyped(const Array<T, 1>& x, const Array<T, 1>& b, double tolRes, double tolErr, double& res, double& err);
    template <class T>
    void addProduct(const Array<T, 1>& x, Array<T, 1>& r) const;

    static constexpr int infoSize = 90;
    static constexpr int controlSize = 20;

    qxutil::RunInfo& runInfo;
    boost::shared_ptr<qxutil::RunLog> runLog;
    double dropTol;
    double threshold;
    double allocInit;
    int blasThreads = 1;
    bool active = false;
    int memoryId = -1;
    long m = 0, n = 0, nnz = 0;
    bool real = true;
    Array<long, 1> Ai, Ap;
    Array<double, 1> Ax, Az;
    double info[infoSize];
    double control[controlSize];
    void* symbolic = nullptr;
    void* numeric = nullptr;
    int sys = 0;
    bool transpose = false;
};
