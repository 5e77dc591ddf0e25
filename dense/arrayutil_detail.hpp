// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What every LAPACK front end needs: sizes that fit, work arrays, the judgement of INFO.

#include "array.hpp"
#include "dense/lapack_detail.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <string_view>

namespace qxarray_detail {

/// A size as LAPACK takes it; std::bad_alloc beyond its 32-bit integers.
inline int lapackInt(unsigned long size)
{
    if (size > static_cast<unsigned long>(INT_MAX))
        throw std::bad_alloc();
    return static_cast<int>(size);
}

template <class T>
int rows(const Array<T, 2>& A) { return lapackInt(A.extent(0)); }
template <class T>
int columns(const Array<T, 2>& A) { return lapackInt(A.extent(1)); }

/// Leading dimension: the extent of the first index, at least 1 as LAPACK demands.
template <class T, int N>
int leading(const Array<T, N>& A) { return std::max(1, lapackInt(A.extent(0))); }

/// Number of columns of an array of any rank that is not empty.
template <class T, int N>
int rightHandSides(const Array<T, N>& B) { return lapackInt(B.size() / B.extent(0)); }

/// Whether all elements are finite: iterations on NaN or infinities end in LAPACK's own error handler, or not at all.
template <class T, int N>
bool isFinite(const Array<T, N>& A) { return !anyNaNorInf(A.data(), A.size()); }

template <class T>
bool isSquare(const Array<T, 2>& A) { return A.extent(0) == A.extent(1); }

/// The answer of a workspace query, read from the first work element.
int workSize(double answer);
inline int workSize(const cplx& answer) { return workSize(answer.real()); }

/// Elements for the length of a call, not initialised: few stand in the frame, more are allocated.
template <class T, unsigned long few>
class Scratch
{
public:
    explicit Scratch(unsigned long size)
    {
        if (size > few)
            many_.resize(size);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    T* data() { return many_.size() != 0 ? many_.data() : reinterpret_cast<T*>(frame_); }

private:
    static_assert(few * sizeof(T) < 12 * 1024, "threads of 128 KiB call LAPACK too");
    alignas(16) std::byte frame_[few * sizeof(T)];
    Array<T, 1> many_;
};

/// Problems with no dimension above this are small. Then no routine works by blocks, and work arrays of smallWork elements
/// are all that any of them can use: 2 n^2 + 8 n + 16 is the largest demand, that of ggevx with condition numbers.
constexpr int smallDimension = 16;
constexpr int smallWork = 2 * smallDimension * smallDimension + 8 * smallDimension + 16;

/// Runs the calls one after the other on one work array. Each call(work, lwork) is first asked for its size, with
/// lwork = workQuery; the array is there before the first of them does its work, so that a failure changes nothing. Small
/// problems are not asked: the answer takes as long as their work. dimension: the largest of the problem.
constexpr int workQuery = -1;
template <class T, class... Calls>
void withSpareWorkspace(int dimension, int spare, Calls... calls)
{
    int size = smallWork;
    if (dimension > smallDimension) {
        size = 1;
        const auto ask = [&size](auto& call) {
            T answer(0);
            call(&answer, workQuery);
            size = std::max(size, workSize(answer));
        };
        (ask(calls), ...);
    }
    Scratch<T, smallWork + smallDimension> work(static_cast<unsigned long>(size) + static_cast<unsigned long>(spare));
    (calls(work.data(), size), ...);
}
template <class T, class... Calls>
void withWorkspace(int dimension, Calls... calls)
{
    withSpareWorkspace<T>(dimension, 0, calls...);
}

/// An array as routines take it that reduce a matrix to bidiagonal form. There the product of a complex matrix with a row
/// reads the row's next element behind its end where BLAS has the defect of OpenBLAS before 0.3.22: a column behind the
/// array. Complex arrays are therefore copies with one column more, O(m n) beside O(m n^2); real ones are lent.
template <class T, int N>
class WithSpareColumn
{
public:
    explicit WithSpareColumn(Array<T, N>& A)
        : original_(A), copy_(copies && A.size() != 0 ? A.size() + A.extent(0) : 0)
    {
        if (copies && A.size() != 0)
            std::fill_n(std::copy_n(A.data(), A.size(), copy_.data()), A.extent(0), T(0));
    }
    T* data() { return copies && original_.size() != 0 ? copy_.data() : original_.data(); }
    /// What the routine left goes to the original.
    void giveBack()
    {
        if (copies)
            std::copy_n(copy_.data(), original_.size(), original_.data());
    }
    /// Elements that work arrays need behind their end for the same reason.
    static int spare(int m, int n) { return copies ? std::max(m, n) : 0; }

private:
    static constexpr bool copies = std::is_same_v<T, cplx>;
    Array<T, N>& original_;
    Scratch<T, copies ? 72 : 1> copy_;
};

/// Work array that complex routines want beside the complex one.
template <class T>
class RealWork : public Scratch<double, std::is_same_v<T, cplx> ? 8 * smallDimension : 1>
{
public:
    explicit RealWork(unsigned long n)
        : Scratch<double, std::is_same_v<T, cplx> ? 8 * smallDimension : 1>(std::is_same_v<T, cplx> ? n : 0)
    {
    }
};

/// NaN, in both parts of a complex number.
template <class T>
T nanValue()
{
    if constexpr (std::is_same_v<T, cplx>)
        return cplx(qxGetNaN(), qxGetNaN());
    else
        return qxGetNaN();
}

enum Flags { RaisePositive = 1, RaiseNegative = 2 };

/// What a positive INFO of a routine means.
struct Breakdown
{
    const char* id;
    const char* detail;
    bool withValue; ///< the detail is a key and INFO its value
};
inline constexpr Breakdown singularMatrix{"Error_in_LAPACK_call", "Singular_matrix", false};
inline constexpr Breakdown svdFailed{"DBDSQR_did_not_converge", "Unconverged_superdiagonals", true};
inline constexpr Breakdown qrFailed{"Iteration_in_the_QR_algorithm_failed", "Iteration", true};
inline constexpr Breakdown qzFailed{"Iteration_in_the_QZ_algorithm_failed", "Iteration", true};

/// Raises what flags ask for, returns info otherwise.
int judge(int info, int flags, const Breakdown& breakdown);
/// For routines that never break down, and for arguments refused before the call.
int judge(int info, int flags);

/// True if the option is one of the letters, of which upper and lower case count as equal, as in LAPACK.
bool isOption(const char* option, std::string_view letters);

} // namespace qxarray_detail
