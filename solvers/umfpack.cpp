// SPDX-License-Identifier: LicenseRef-qxkernel
#include "umfpack.hpp"

#include "arrayutil.hpp"
#include "qxcutil.h"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "solvers/expand_detail.hpp"
#include "solvers/umfpack_context.h"

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <umfpack.h>

using cplx = std::complex<double>;

namespace {

static_assert(UMFPACK_INFO == 90 && UMFPACK_CONTROL == 20, "the size of the arrays in the header");
static_assert(sizeof(SuiteSparse_long) == sizeof(long), "long indices");

[[noreturn]] void internalError(long code)
{
    QX_RAISE("umfpack", "Internal_error_in_UMFPACK", "Error_code", code);
}

/// Passes progress from inside the factorisation to the log, and an exception of its listener around UMFPACK's frames.
class ProgressRelay
{
public:
    explicit ProgressRelay(qxutil::RunLog& log) : log_(log) { umfpackSetReporter(&ProgressRelay::report, this); }
    ~ProgressRelay() { umfpackSetReporter(nullptr, nullptr); }
    ProgressRelay(const ProgressRelay&) = delete;
    ProgressRelay& operator=(const ProgressRelay&) = delete;

    /// Raises again what the listener raised, if it did.
    void rethrow() const
    {
        if (failure_)
            std::rethrow_exception(failure_);
    }

private:
    static int report(void* self, double fraction) noexcept
    {
        auto* relay = static_cast<ProgressRelay*>(self);
        try {
            relay->log_.setProgress(fraction);
        } catch (...) {
            relay->failure_ = std::current_exception();
        }
        return relay->failure_ ? 1 : 0;
    }

    qxutil::RunLog& log_;
    std::exception_ptr failure_;
};

/// The threads of a factorisation, while this lives. Parallel BLAS divides sums: it works with one thread unless it is
/// asked for, and a team is opened over panels of its large products.
class Threads
{
public:
    explicit Threads(int blasThreads)
    {
        constexpr int mostInBlas = 16; // more at a time end the process in some builds of OpenBLAS
        const bool mayFork = qxbase::isParallelLoop(qxbase::parallelThreshold);
        umfpackSetTeam(blasThreads != 1 ? 0 : mayFork ? std::min(AVAILABLETHREADS(), mostInBlas) : 1);
        if (blasThreads > 0)
            scope_.emplace(blasThreads);
    }
    ~Threads() { umfpackSetTeam(1); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

private:
    std::optional<qxbase::BlasThreadScope> scope_;
};

/// What arrives through the long jump. Codes that are not listed are ignored.
void raiseForJump(int code)
{
    switch (code) {
    case qxcOutOfMemory: QX_RAISE("umfpack", "Out_of_memory_operation_sparse_matrix");
    case 2: QX_RAISE("umfpack", "Singular_matrix");
    case 3: QX_RAISE("umfpack", "Error_in_spooles_internal");
    case qxcCallocFailed: QX_RAISE("umfpack", "Internal_error_in_memory_handler", "Calloc failed");
    case 5: QX_RAISE("umfpack", "Matrix_is_not_positive_definite");
    case qxcCancelled: {
        qxbase::CancelException cancelled;
        cancelled.add("umfpack", __LINE__, "<CANCEL>Linear_solver_cancelled");
        throw cancelled;
    }
    case 7: QX_RAISE("umfpack", "Out_of_stack_space_during_taucs_factorization");
    case qxcOverflowInBlas: QX_RAISE("umfpack", "Error_in_umfpack_internal", "Overflow_in_blas_operation");
    default: return;
    }
}

template <class T>
bool isZero(const llsparse<T>& S)
{
    return std::all_of(S.val, S.val + S.nnz(), [](const T& v) { return v == T(0); });
}

void split(const cplx& value, double& re, double& im)
{
    re = value.real();
    im = value.imag();
}
void split(double value, double& re, double&) { re = value; }

/// Copies columns to UMFPACK's arrays; entries of one row, adjacent after the sort, become one. With dropZeros sums of
/// exactly zero are left out.
template <class T>
long copyColumns(const llsparse<T>& S, bool dropZeros, long* Ap, long* Ai, double* Ax, double* Az)
{
    long count = 0;
    Ap[0] = 0;
    const auto dropLast = [&](long first) {
        if (dropZeros && count > first && Ax[count - 1] == 0.0 && (Az == nullptr || Az[count - 1] == 0.0))
            --count;
    };
    for (unsigned long j = 0; j < S.n; ++j) {
        for (unsigned long k = S.colPtr[j]; k < S.colPtr[j + 1]; ++k) {
            const long i = static_cast<long>(S.row[k]);
            double re = 0.0, im = 0.0;
            split(S.val[k], re, im);
            if (count > Ap[j] && Ai[count - 1] == i) {
                Ax[count - 1] += re;
                if (Az != nullptr)
                    Az[count - 1] += im;
                continue;
            }
            dropLast(Ap[j]); // complete now
            Ai[count] = i;
            Ax[count] = re;
            if (Az != nullptr)
                Az[count] = im;
            ++count;
        }
        dropLast(Ap[j]);
        Ap[j + 1] = count;
    }
    return count;
}

/// Runs f; failed allocations, those of matrix operations too, become the driver's own failure.
template <class F>
void guarded(const F& f)
{
    try {
        f();
    } catch (const std::bad_alloc&) {
        QX_RAISE("umfpack", "Out_of_memory_LU_factorization");
    } catch (const qxbase::CancelException&) {
        throw;
    } catch (const qxbase::Exception& e) {
        if (e.size() > 0 && e.getFile(0) != "umfpack" && e.getId().starts_with("Out_of_memory_"))
            QX_RAISE("umfpack", "Out_of_memory_LU_factorization");
        throw;
    }
}

/// The status of a request for factors.
void judgeFactors(long status)
{
    switch (status) {
    case UMFPACK_OK: return;
    case UMFPACK_ERROR_out_of_memory: QX_RAISE("umfpack", "Out_of_memory_LU_factorization");
    default: internalError(status);
    }
}

void judgeSolution(long status)
{
    switch (status) {
    case UMFPACK_OK: return;
    case UMFPACK_ERROR_out_of_memory: QX_RAISE("umfpack", "Out_of_memory_back_substitution");
    case UMFPACK_WARNING_singular_matrix: QX_RAISE("umfpack", "Singular_matrix");
    default: internalError(status);
    }
}

} // namespace

Umfpack::Umfpack(qxutil::RunInfo& run, double dropTol_, double threshold_, double allocInit_)
    : runInfo(run), dropTol(dropTol_), threshold(threshold_), allocInit(allocInit_), info{}, control{}
{
    umfpackInit();
}

Umfpack::Umfpack(qxutil::RunInfo& run) : Umfpack(run, 0.0, 0.1, 0.7) {}

Umfpack::~Umfpack()
{
    clear();
    qxcFreeID(memoryId);
}

void Umfpack::umfpackInit()
{
    umfpackInstallHooks();
    active = runInfo.isActive();
    memoryId = qxcNextFreeID();
    if (memoryId < 0)
        QX_RAISE("umfpack", "Error_in_umfpack_initialization");
}

void Umfpack::freeSymbolic()
{
    if (symbolic != nullptr)
        umfpack_dl_free_symbolic(&symbolic);
    symbolic = nullptr;
}

void Umfpack::freeNumeric()
{
    if (numeric != nullptr)
        umfpack_dl_free_numeric(&numeric);
    numeric = nullptr;
}

void Umfpack::clear()
{
    qxcSetID(memoryId);
    freeNumeric();
    freeSymbolic();
    // Not Array::clear, which allocates: the destructor comes here.
    Array<long, 1>().swap(Ai);
    Array<long, 1>().swap(Ap);
    Array<double, 1>().swap(Ax);
    Array<double, 1>().swap(Az);
    qxcFreeAll();
    m = n = nnz = 0;
    real = true;
}

void Umfpack::setTranspose(bool value)
{
    transpose = value;
    sys = value ? UMFPACK_Aat : UMFPACK_A;
}

void Umfpack::init(Sparse& A, bool clearInput, bool transposed, bool allowSingular, bool scale)
{
    guarded([&] {
        clear();
        setTranspose(transposed);
        m = static_cast<long>(A.getM());
        n = static_cast<long>(A.getN());
        if (m == 0 || n == 0)
            return;
        if (!allowSingular) {
            if (m != n)
                QX_RAISE("umfpack", "Matrix_not_square");
            if (A.isReal() ? isZero(*A.getptrD()) : isZero(*A.getptrZ()))
                QX_RAISE("umfpack", "Matrix_is_zero");
        }
        Sparse local(A);
        if (clearInput)
            A.clear();
        local = qxsolvers_detail::expanded(local);
        sparse2umfpack(local, allowSingular);
        local.clear();
        setDefaults();
        factoriseWithLog(allowSingular, scale);
    });
}

void Umfpack::sparse2umfpack(const Sparse& A, bool allowSingular)
{
    if (m != n && !allowSingular)
        QX_RAISE("umfpack", "Matrix_not_square");
    const unsigned long slots = std::max(1ul, A.getNnz());
    Ap.resize(static_cast<unsigned long>(n) + 1);
    Ai.resize(slots);
    Ax.resize(slots);
    real = A.isReal();
    // Of a singular matrix UMFPACK may take an explicit zero for a pivot, and L would hold infinities.
    const bool dropZeros = allowSingular;
    if (real) {
        nnz = copyColumns(*A.getptrD(), dropZeros, Ap.data(), Ai.data(), Ax.data(), nullptr);
    } else {
        Az.resize(slots);
        nnz = copyColumns(*A.getptrZ(), dropZeros, Ap.data(), Ai.data(), Ax.data(), Az.data());
    }
}

void Umfpack::setDefaults()
{
    if (real)
        umfpack_dl_defaults(control);
    else
        umfpack_zl_defaults(control);
    control[UMFPACK_DROPTOL] = dropTol;
    control[UMFPACK_PIVOT_TOLERANCE] = threshold;
    control[UMFPACK_ALLOC_INIT] = allocInit;
}

void Umfpack::factoriseWithLog(bool allowSingular, bool scale)
{
    if (!runLog)
        runLog.reset(new qxutil::RunLog(runInfo, true, true));
    runLog->init("UMFPACK");
    runLog->setProgress(0.0);
    runLog->setProgressScale(1.0);
    runLog->setParam("Step", 0.0);

    // The context writes into the log while the factorisation runs: it must forget the addresses before the log goes.
    struct Lease
    {
        Umfpack& owner;
        ~Lease()
        {
            qxcSetID(owner.memoryId);
            qxcSetCancelAdr(nullptr);
            qxcSetLastProgressAdr(nullptr);
            qxcSetParamValueAdr(nullptr);
            owner.runLog.reset();
        }
    } const lease{*this};
    qxcSetID(memoryId);
    qxcSetCancelAdr(runInfo.adrCancel());
    qxcSetLastProgressAdr(runLog->adrLastProgress());
    qxcSetParamValueAdr(runLog->adrParamValue());

    luUmfpack(allowSingular, scale);
    runLog->setProgress(1.0);
}

/// After a jump UMFPACK's objects are unfinished: their blocks are freed as such.
void Umfpack::forgetAfterJump()
{
    symbolic = numeric = nullptr;
    qxcFreeAll();
}

void Umfpack::luUmfpack(bool allowSingular, bool scale)
{
    qxcSetID(memoryId);
    if (!scale)
        control[UMFPACK_SCALE] = UMFPACK_SCALE_NONE;

    long status = UMFPACK_OK;
    runLog->setParam("Step", 1.0);
    int code = real ? wrap_umfpack_dl_symbolic(m, n, Ap.data(), Ai.data(), Ax.data(), &symbolic, control, info, &status)
                    : wrap_umfpack_zl_symbolic(m, n, Ap.data(), Ai.data(), Ax.data(), Az.data(), &symbolic, control,
                                               info, &status);
    if (code > 0) {
        forgetAfterJump();
        raiseForJump(code);
    }
    switch (status) {
    case UMFPACK_OK: break;
    case -16:
    case UMFPACK_ERROR_out_of_memory: QX_RAISE("umfpack", "Out_of_memory_LU_factorization");
    default: internalError(status);
    }

    runLog->setParam("Step", 2.0);
    const ProgressRelay relay(*runLog);
    const Threads threads(blasThreads);
    code = real ? wrap_umfpack_dl_numeric(Ap.data(), Ai.data(), Ax.data(), symbolic, &numeric, control, info, &status)
                : wrap_umfpack_zl_numeric(Ap.data(), Ai.data(), Ax.data(), Az.data(), symbolic, &numeric, control, info,
                                          &status);
    if (code > 0) {
        forgetAfterJump();
        relay.rethrow();
        raiseForJump(code);
    }
    freeSymbolic();
    if (status == UMFPACK_OK || (status == UMFPACK_WARNING_singular_matrix && allowSingular))
        return;
    freeNumeric();
    switch (status) {
    case UMFPACK_ERROR_out_of_memory: QX_RAISE("umfpack", "Out_of_memory_LU_factorization");
    case UMFPACK_WARNING_singular_matrix: QX_RAISE("umfpack", "Singular_matrix");
    default: internalError(status);
    }
}

void Umfpack::checkRightHandSide(unsigned long length) const
{
    if (length != static_cast<unsigned long>(m))
        QX_RAISE("umfpack", "Internal_error_in_UMFPACK");
    if (m != 0 && numeric == nullptr)
        internalError(UMFPACK_ERROR_invalid_Numeric_object);
}

void Umfpack::solveReal(const double* b, double* x)
{
    qxcSetID(memoryId);
    judgeSolution(umfpack_dl_solve(sys, Ap.data(), Ai.data(), Ax.data(), x, b, numeric, control, info));
}

int Umfpack::solve(const Array<double, 1>& b, Array<double, 1>& x)
try {
    if (!real)
        QX_RAISE("umfpack", "Internal_error_in_UMFPACK");
    checkRightHandSide(b.size());
    if (&b == &x) {
        const Array<double, 1> copy(b);
        return solve(copy, x);
    }
    if (m == 0) {
        x = b;
        return 1;
    }
    x.resize(b.size());
    solveReal(b.data(), x.data());
    return 1;
} catch (const std::bad_alloc&) {
    QX_RAISE("umfpack", "Out_of_memory_back_substitution");
}

int Umfpack::solve(const Array<cplx, 1>& b, Array<cplx, 1>& x)
try {
    checkRightHandSide(b.size());
    if (m == 0) {
        x = b;
        return 1;
    }
    const unsigned long length = b.size();
    Array<double, 1> bRe(length), bIm(length), xRe(length), xIm(length);
    for (unsigned long i = 0; i < length; ++i)
        split(b[i], bRe[i], bIm[i]);
    if (real) {
        solveReal(bRe.data(), xRe.data());
        solveReal(bIm.data(), xIm.data());
    } else {
        qxcSetID(memoryId);
        judgeSolution(umfpack_zl_solve(sys, Ap.data(), Ai.data(), Ax.data(), Az.data(), xRe.data(), xIm.data(),
                                       bRe.data(), bIm.data(), numeric, control, info));
    }
    x.resize(length);
    for (unsigned long i = 0; i < length; ++i)
        x[i] = cplx(xRe[i], xIm[i]);
    return 1;
} catch (const std::bad_alloc&) {
    QX_RAISE("umfpack", "Out_of_memory_back_substitution");
}

int Umfpack::solve(const Matrix<1>& b, Matrix<1>& x)
try {
    if (x.isNoRealloc() && x.size() != b.size())
        QX_RAISE("umfpack", "Internal_error_in_UMFPACK");
    Matrix<1> rhs(b);
    bool defined = false;
    if (real && rhs.isReal() && x.isReal()) {
        Array<double, 1>& solution = x.getdArr();
        solve(rhs.gethdArr(), solution);
        defined = !anyNaNorInf(solution.data(), solution.size());
    } else {
        if (rhs.isReal())
            rhs.trueCopy(b, false);
        Array<cplx, 1>& solution = x.getzArr();
        solve(rhs.gethzArr(), solution);
        defined = !anyNaNorInf(solution.data(), solution.size());
    }
    if (!defined)
        QX_RAISE("umfpack", "Undefined_value_found_Linsolv",
                 "NaN_or_Inf_found_when_solving_linear_system_using_UMFPACK");
    return 1;
} catch (const std::bad_alloc&) {
    QX_RAISE("umfpack", "Out_of_memory_back_substitution");
}

namespace {

double product(double a, double, double x) { return a * x; }
cplx product(double re, double im, const cplx& x)
{
    return {re * x.real() - im * x.imag(), re * x.imag() + im * x.real()};
}

} // namespace

/// r += op(A) x, from the copied arrays.
template <class T>
void Umfpack::addProduct(const Array<T, 1>& x, Array<T, 1>& r) const
{
    for (unsigned long j = 0; j < static_cast<unsigned long>(n); ++j)
        for (long k = Ap[j]; k < Ap[j + 1]; ++k) {
            const auto p = static_cast<unsigned long>(k);
            const auto i = static_cast<unsigned long>(Ai[p]);
            const double im = real ? 0.0 : Az[p];
            if (sys == UMFPACK_A)
                r[i] += product(Ax[p], im, x[j]);
            else
                r[j] += product(Ax[p], im, x[i]);
        }
}

template <class T>
int Umfpack::checkTyped(const Array<T, 1>& x, const Array<T, 1>& b, double tolRes, double tolErr, double& res,
                        double& err)
{
    Array<T, 1> r(b), e;
    qxarray::scale(r, T(-1));
    addProduct(x, r);
    const double normb = qxarray::norm(b);
    res = normb != 0.0 ? qxarray::norm(r) / normb : qxarray::norm(r);
    if (res > tolRes)
        return -15;
    solve(r, e);
    const double normx = qxarray::norm(x);
    err = normx != 0.0 ? qxarray::norm(e) / normx : qxarray::norm(e);
    return err > tolErr ? -16 : 1;
}

int Umfpack::checkTolerances(const Matrix<1>& x, const Matrix<1>& b, double tolRes, double tolErr, double& res,
                             double& err)
try {
    checkRightHandSide(b.size());
    if (x.size() != static_cast<unsigned long>(n))
        QX_RAISE("umfpack", "Internal_error_in_UMFPACK");
    if (real && x.isReal() && b.isReal())
        return checkTyped(x.gethdArr(), b.gethdArr(), tolRes, tolErr, res, err);
    Matrix<1> zx, zb;
    zx.trueCopy(x, false);
    zb.trueCopy(b, false);
    return checkTyped(zx.gethzArr(), zb.gethzArr(), tolRes, tolErr, res, err);
} catch (const std::bad_alloc&) {
    QX_RAISE("umfpack", "Out_of_memory_back_substitution");
}

namespace {

using IndexArray = Array<unsigned long, 1>;

IndexArray toIndices(const Array<long, 1>& from, unsigned long count)
{
    IndexArray to(count);
    std::copy_n(from.data(), count, to.data());
    return to;
}

Matrix<1> toValues(const Array<double, 1>& re, const Array<double, 1>& im, unsigned long count, bool real)
{
    Matrix<1> values(uninit_t(), count, real);
    if (real)
        std::copy_n(re.data(), count, values.getdArr().data());
    else
        for (unsigned long i = 0; i < count; ++i)
            values.getzArr()[i] = cplx(re[i], im[i]);
    return values;
}

/// The matrix with one entry, values[k] or 1, at each (rows[k], cols[k]).
Sparse selection(const IndexArray& rows, const IndexArray& cols, const Matrix<1>* values)
{
    Sparse S;
    if (values != nullptr)
        S.triplet2sparse(rows, cols, *values, rows.size(), rows.size());
    else
        S.triplet2sparse(rows, cols, 1.0, rows.size(), rows.size());
    S.format(FormSorted, true);
    return S;
}

IndexArray ascending(unsigned long count)
{
    IndexArray k(count);
    for (unsigned long i = 0; i < count; ++i)
        k[i] = i;
    return k;
}

} // namespace

void Umfpack::getLuFactorization(Sparse& L, Sparse& U, Sparse& P, Sparse& Q, Sparse& R) const
{
    guarded([&] { luFactorization(L, U, P, Q, R); });
}

void Umfpack::luFactorization(Sparse& L, Sparse& U, Sparse& P, Sparse& Q, Sparse& R) const
{
    if (numeric == nullptr)
        internalError(UMFPACK_ERROR_invalid_Numeric_object);
    qxcSetID(memoryId);
    long lnz = 0, unz = 0, rows = 0, columns = 0, nonZeroPivots = 0, reciprocal = 0;
    long status = real ? umfpack_dl_get_lunz(&lnz, &unz, &rows, &columns, &nonZeroPivots, numeric)
                       : umfpack_zl_get_lunz(&lnz, &unz, &rows, &columns, &nonZeroPivots, numeric);
    judgeFactors(status);

    const auto um = static_cast<unsigned long>(m), un = static_cast<unsigned long>(n), k = std::min(um, un);
    const auto nl = static_cast<unsigned long>(lnz), nu = static_cast<unsigned long>(unz);
    Array<long, 1> Lp(um + 1), Lj(nl), Up(un + 1), Ui(nu), p(um), q(un);
    Array<double, 1> Lx(nl), Lz(real ? 0 : nl), Ux(nu), Uz(real ? 0 : nu), Rs(um);
    status = real ? umfpack_dl_get_numeric(Lp.data(), Lj.data(), Lx.data(), Up.data(), Ui.data(), Ux.data(), p.data(),
                                           q.data(), nullptr, &reciprocal, Rs.data(), numeric)
                  : umfpack_zl_get_numeric(Lp.data(), Lj.data(), Lx.data(), Lz.data(), Up.data(), Ui.data(), Ux.data(),
                                           Uz.data(), p.data(), q.data(), nullptr, nullptr, &reciprocal, Rs.data(),
                                           numeric);
    judgeFactors(status);

    // L comes by rows: its arrays are the columns of its transpose.
    Sparse byRows, upper;
    byRows.flat2sparse(toIndices(Lj, nl), toIndices(Lp, um + 1), toValues(Lx, Lz, nl, real), k, um);
    upper.flat2sparse(toIndices(Ui, nu), toIndices(Up, un + 1), toValues(Ux, Uz, nu, real), k, un);
    upper.format(FormSorted, true);
    if (reciprocal == 0)
        for (double& r : Rs)
            r = 1.0 / r;
    const Matrix<1> scaling = toValues(Rs, Lz, um, true);
    const Sparse lower = ::transpose(byRows, Trans);
    const Sparse rowPermutation = selection(ascending(um), toIndices(p, um), nullptr);
    const Sparse columnPermutation = selection(toIndices(q, un), ascending(un), nullptr);
    const Sparse diagonal = selection(ascending(um), ascending(um), &scaling);
    L = lower;
    U = upper;
    P = rowPermutation;
    Q = columnPermutation;
    R = diagonal;
}
