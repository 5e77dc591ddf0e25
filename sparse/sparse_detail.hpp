// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// What the sources of the handle share.

#include "llsparse_detail.hpp"
#include "qxexception.hpp"
#include "scalar.hpp"
#include "sparse.hpp"

#include <new>
#include <stdexcept>
#include <string>

namespace qxsparse {

/// Runs f and turns what comes out of it into failures of the module.
template <class F>
decltype(auto) guarded(const F& f, const char* outOfMemory = "Out_of_memory_operation_sparse_matrix")
{
    try {
        return f();
    } catch (const qxbase::Exception&) {
        throw;
    } catch (const SizeTooLarge& e) {
        QX_RAISE("sparse", outOfMemory,
                 qxbase::ExceptionArgs{{"Size", std::to_string(e.size)}, {"Limit", std::to_string(sizeLimit)}});
    } catch (const std::bad_alloc&) {
        QX_RAISE("sparse", outOfMemory);
    } catch (const std::length_error&) {
        QX_RAISE("sparse", outOfMemory);
    } catch (...) {
        QX_RAISE("sparse", "Internal_error_sparse");
    }
}

constexpr const char* outOfMemoryCreating = "Out_of_memory_creating_sparse_matrix";
constexpr unsigned long mostTriplets = 4009617631;

inline void checkLength(bool agree)
{
    if (!agree)
        QX_RAISE("sparse", "Length_triplet_vectors_disagree");
}

inline void checkNotTooLarge(unsigned long count)
{
    if (count > mostTriplets)
        refuseSize("Size_input_vector_too_large", count, mostTriplets);
}

/// f on the live store of A, with its element type.
template <class F>
decltype(auto) visitStore(const Sparse& A, const F& f)
{
    return A.isReal() ? f(*A.getptrD()) : f(*A.getptrZ());
}

/// A handle on a fresh store that fill(store) fills.
template <class T, class Fill>
Sparse makeSparse(const Fill& fill)
{
    const boost::shared_ptr<llsparse<T>> store(new llsparse<T>);
    fill(*store);
    return Sparse(store);
}

inline bool isRowStored(const Sparse& A) { return A.getSymm() == RowStored; }

/// The element type of a combination of two stores: complex if either is.
template <class T, class U>
using Common = std::conditional_t<std::is_same_v<T, double> && std::is_same_v<U, double>, double, cplx>;
template <class S>
using ElementOf = std::remove_cvref_t<decltype(*S::val)>;

void checkMixture(const Sparse& A, const Sparse& B);
/// Raises "Size_sparse_matrices_disagree" unless the condition holds.
void checkSizes(bool agree);

} // namespace qxsparse
