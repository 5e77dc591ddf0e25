#pragma once

// What every LAPACK front end needs: sizes that fit, work arrays, the judgement of INFO.

#include "array.hpp"
#include "dense/lapack_detail.hpp"

#include <climits>
#include <limits>
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

template <class T>
bool isSquare(const Array<T, 2>& A) { return A.extent(0) == A.extent(1); }

/// The answer of a workspace query, read from the first work element.
int workSize(double answer);
inline int workSize(const cplx& answer) { return workSize(answer.real()); }

/// Asks for the work size, allocates, calls: call(work, lwork) twice. The arrays that the call changes are changed by
/// the second call only, after all allocation.
template <class T, class Call>
void withWorkspace(Call call)
{
    T answer(0);
    call(&answer, -1);
    Array<T, 1> work(static_cast<unsigned long>(workSize(answer)));
    call(work.data(), lapackInt(work.size()));
}

/// Work array that complex routines want beside the complex one.
template <class T>
Array<double, 1> realWork(unsigned long n)
{
    return Array<double, 1>(std::is_same_v<T, cplx> ? n : 0ul);
}

/// NaN, in both parts of a complex number.
template <class T>
T nanValue()
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    if constexpr (std::is_same_v<T, cplx>)
        return cplx(nan, nan);
    else
        return nan;
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
