// SPDX-License-Identifier: LicenseRef-qxkernel
// Storage, construction and versions of llsparse<T>.

#include "llsparse_detail.hpp"
#include "team.hpp"

#include <algorithm>
#include <atomic>
#include <limits>

namespace {

std::atomic<std::int64_t> lastRealVersion{0};
std::atomic<std::int64_t> lastComplexVersion{0};

/// Steps away from zero in the given direction; starts again next to zero when the range is used up.
std::int64_t nextVersion(std::atomic<std::int64_t>& last, std::int64_t step, std::int64_t end)
{
    std::int64_t seen = last.load(std::memory_order_relaxed), next;
    do
        next = seen == end ? step : seen + step;
    while (!last.compare_exchange_weak(seen, next, std::memory_order_relaxed));
    return next;
}

} // namespace

template <>
std::int64_t llsparse<double>::getNewRowColptrVersion()
{
    return nextVersion(lastRealVersion, 1, std::numeric_limits<std::int64_t>::max());
}

template <>
std::int64_t llsparse<std::complex<double>>::getNewRowColptrVersion()
{
    return nextVersion(lastComplexVersion, -1, std::numeric_limits<std::int64_t>::min());
}

template <class T>
template <class E>
E* llsparse<T>::allocate(boost::shared_ptr<Array<E, 1>>& holder, unsigned long n)
{
    holder.reset(new Array<E, 1>(n));
    return holder->data();
}

template <class T>
void llsparse<T>::allocColPtr()
{
    colPtr = allocate(colPtrArray, n + 1);
}

template <class T>
void llsparse<T>::allocRow()
{
    row = allocate(rowArray, nzmax);
}

template <class T>
void llsparse<T>::allocVal()
{
    val = allocate(valArray, nzmax);
}

template <class T>
void llsparse<T>::allocDiag()
{
    diag = allocate(diagArray, n);
}

template <class T>
void llsparse<T>::setColPtr(const boost::shared_ptr<IndexArray>& holder)
{
    rowColptrVersion = getNewRowColptrVersion();
    colPtrArray = holder;
    colPtr = holder ? holder->data() : nullptr;
}

template <class T>
void llsparse<T>::setRow(const boost::shared_ptr<IndexArray>& holder)
{
    rowColptrVersion = getNewRowColptrVersion();
    rowArray = holder;
    row = holder ? holder->data() : nullptr;
}

template <class T>
void llsparse<T>::setVal(const boost::shared_ptr<Array<T, 1>>& holder)
{
    valArray = holder;
    val = holder ? holder->data() : nullptr;
}

template <class T>
void llsparse<T>::releaseDiag()
{
    diagArray.reset();
    diag = nullptr;
    form = form & ~FormDiag;
}

template <class T>
llsparse<T>::llsparse() : rowColptrVersion(getNewRowColptrVersion())
{
}

template <class T>
llsparse<T>::llsparse(unsigned long m_, unsigned long n_, unsigned long nzmax_) : llsparse()
{
    llsp_zeros(m_, n_, nzmax_);
}

template <class T>
llsparse<T>::llsparse(const llsparse& other)
    : m(other.m), n(other.n), nzmax(other.nnz()), symm(other.symm), form(other.form),
      rowColptrVersion(getNewRowColptrVersion())
{
    if (!other.colPtr)
        return;
    allocColPtr();
    std::copy_n(other.colPtr, n + 1, colPtr);
    allocRow();
    std::copy_n(other.row, nzmax, row);
    allocVal();
    std::copy_n(other.val, nzmax, val);
    if (form & FormDiag) {
        const unsigned long known = other.diagArray ? std::min(n, other.diagArray->size()) : 0;
        diag = allocate(diagArray, known);
        std::copy_n(other.diag, known, diag);
    }
}

/// Takes the arrays, sizes and attributes of a result under a new version. With keepCapacity a result that fits is
/// copied into the present arrays instead, and nzmax stays.
template <class T>
void llsparse<T>::adopt(llsparse& result, bool keepCapacity)
{
    const unsigned long count = result.nnz();
    if (keepCapacity && count <= nzmax && row) {
        std::copy_n(result.row, count, row);
        std::copy_n(result.val, count, val);
    } else {
        nzmax = result.nzmax;
        rowArray.swap(result.rowArray);
        row = result.row;
        valArray.swap(result.valArray);
        val = result.val;
    }
    colPtrArray.swap(result.colPtrArray);
    colPtr = result.colPtr;
    diagArray.reset();
    diag = nullptr;
    m = result.m;
    n = result.n;
    symm = result.symm;
    form = result.form;
    rowColptrVersion = getNewRowColptrVersion();
}

template <class T>
void llsparse<T>::llsp_zeros(unsigned long m_, unsigned long n_, unsigned long nzmax_)
{
    boost::shared_ptr<IndexArray> newColPtr, newRow;
    boost::shared_ptr<Array<T, 1>> newVal;
    qxsparse::extent(m_);
    std::fill_n(allocate(newColPtr, qxsparse::extent(n_) + 1), n_ + 1, 0UL);
    allocate(newRow, nzmax_);
    allocate(newVal, nzmax_);
    setColPtr(newColPtr);
    setRow(newRow);
    setVal(newVal);
    releaseDiag();
    m = m_;
    n = n_;
    nzmax = nzmax_;
    symm = Unsymmetric;
    form = FormSorted;
}

template <class T>
void llsparse<T>::eye(unsigned long m_, unsigned long n_)
{
    const unsigned long count = std::min(m_, n_);
    llsp_zeros(m_, n_, count);
    for (unsigned long k = 0; k < count; ++k) {
        colPtr[k] = row[k] = k;
        val[k] = T(1.0);
    }
    std::fill(colPtr + count, colPtr + n + 1, count);
}

template <class T>
void llsparse<T>::sparseCopy(const unsigned long* colPtr_, const unsigned long* row_, const T* val_, unsigned long m_,
                             unsigned long n_)
{
    const unsigned long count = colPtr_[n_];
    llsp_zeros(m_, n_, count);
    std::copy_n(colPtr_, n + 1, colPtr);
    std::copy_n(row_, count, row);
    std::copy_n(val_, count, val);
    form = FormNone;
}

void llsp_real2complex(llsparse<double>& source, llsparse<std::complex<double>>& target, int useCount)
{
    using Target = llsparse<std::complex<double>>;
    const unsigned long count = source.nnz();

    boost::shared_ptr<Array<std::complex<double>, 1>> newVal;
    std::complex<double>* val = Target::allocate(newVal, source.nzmax);
    std::copy_n(source.val, count, val);
    boost::shared_ptr<Target::IndexArray> newColPtr = source.colPtrArray, newRow = source.rowArray,
                                          newDiag = source.diagArray;
    if (useCount >= 2) {
        std::copy_n(source.colPtr, source.n + 1, Target::allocate(newColPtr, source.n + 1));
        std::copy_n(source.row, count, Target::allocate(newRow, source.nzmax));
        if (source.diagArray)
            newDiag.reset(new Target::IndexArray(*source.diagArray));
    }
    target.m = source.m;
    target.n = source.n;
    target.nzmax = source.nzmax;
    target.symm = source.symm;
    target.form = source.form;
    target.setColPtr(newColPtr);
    target.setRow(newRow);
    target.setVal(newVal);
    target.diagArray = newDiag;
    target.diag = newDiag ? newDiag->data() : nullptr;
    if (useCount < 2) {
        source.setColPtr({});
        source.setRow({});
        source.setVal({});
        source.diagArray.reset();
        source.diag = nullptr;
        source.m = source.n = source.nzmax = 0;
        source.form = FormNone;
    }
}

#define QX_INSTANTIATE(T)                                                                                             \
    template llsparse<T>::llsparse();                                                                                 \
    template llsparse<T>::llsparse(unsigned long, unsigned long, unsigned long);                                      \
    template llsparse<T>::llsparse(const llsparse&);                                                                  \
    template void llsparse<T>::allocColPtr();                                                                         \
    template void llsparse<T>::allocRow();                                                                            \
    template void llsparse<T>::allocVal();                                                                            \
    template void llsparse<T>::allocDiag();                                                                           \
    template void llsparse<T>::setColPtr(const boost::shared_ptr<IndexArray>&);                                       \
    template void llsparse<T>::setRow(const boost::shared_ptr<IndexArray>&);                                          \
    template void llsparse<T>::setVal(const boost::shared_ptr<Array<T, 1>>&);                                         \
    template void llsparse<T>::releaseDiag();                                                                         \
    template void llsparse<T>::adopt(llsparse&, bool);                                                                \
    template void llsparse<T>::llsp_zeros(unsigned long, unsigned long, unsigned long);                               \
    template void llsparse<T>::eye(unsigned long, unsigned long);                                                     \
    template void llsparse<T>::sparseCopy(const unsigned long*, const unsigned long*, const T*, unsigned long,        \
                                          unsigned long);                                                             \
    template double* llsparse<T>::allocate(boost::shared_ptr<Array<double, 1>>&, unsigned long);                      \
    template std::complex<double>* llsparse<T>::allocate(boost::shared_ptr<Array<std::complex<double>, 1>>&,          \
                                                         unsigned long);                                              \
    template unsigned long* llsparse<T>::allocate(boost::shared_ptr<IndexArray>&, unsigned long);
QX_FOR_EACH_STORE(QX_INSTANTIATE)
