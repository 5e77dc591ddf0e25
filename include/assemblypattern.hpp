// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"
#include "sparse.hpp"

#include <boost/shared_ptr.hpp>

#include <complex>
#include <vector>

namespace qxutil {
class RunInfo;
}

/// The sparsity pattern of a list of triplets together with the place of each triplet in it, for assembling the same list
/// again with new values: what a finite-element code does in every step of Newton's method and of time.
///
///     AssemblyPattern pattern(rows, cols, m, n);       // once a mesh
///     pattern.assemble(values, A);                     // every step
///
/// A is what A.triplet2sparse(rows, cols, values, m, n) gives, bit for bit: entries of a column in the order of first
/// appearance, duplicates added in the order of the list, sums that cancel and zeros kept.
///
/// A matrix that an assembly with this pattern filled is filled again where it is, without allocation, and keeps its
/// structure version: what solvers derived from the structure stays valid. That holds until something else changes its
/// structure, form or symm, or another handle shares its store; then a new store takes its place. Several matrices may be
/// filled with one pattern.
///
/// Memory: 4 bytes a triplet; with t > 1 threads 8 more a stretch of the list that goes to one of t equal parts of the
/// matrix; 8 an entry, 8 a column.
/// Cost: making it, about two assemblies. Assembling, a pass over places and values.
/// Threads: immutable, for any number of threads at once; copies share it. Assembly forks by the length of the list, into no
/// more threads than were available when the pattern was made; same bits for any number.
///
/// Failures come from "sparse" and leave pattern and matrix as they were: "Length_triplet_vectors_disagree" for a list of
/// another length, "Indices_assembly_pattern_disagree" with "Triplet", "Row" and "Column" for other indices,
/// "Size_input_vector_too_large", "Out_of_memory_creating_sparse_matrix", and "Internal_error_sparse" with "Index" and
/// "Size" for an index out of range.
class QX_API AssemblyPattern
{
public:
    using Complex = std::complex<double>;

    /// Of an empty list in a 0-by-0 matrix.
    AssemblyPattern();
    /// The list is lent for the call. A cancelled run raises qxbase::CancelException. A matrix without rows or columns
    /// takes no entries.
    AssemblyPattern(const unsigned long* rows, unsigned long nRows, const unsigned long* cols, unsigned long nCols,
                    unsigned long m, unsigned long n, const qxutil::RunInfo* run = nullptr);
    AssemblyPattern(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols, unsigned long m,
                    unsigned long n);

    unsigned long getM() const;
    unsigned long getN() const;
    unsigned long getNnz() const;   ///< entries of the matrices
    unsigned long getCount() const; ///< triplets of the list

    /// Assembles new values, real or complex, one for each triplet of the list.
    void assemble(const std::vector<double>& vals, Sparse& A) const;
    void assemble(const std::vector<Complex>& vals, Sparse& A) const;
    void assemble(const Matrix<1>& vals, Sparse& A) const;
    /// The same value for every triplet.
    void assemble(double val, Sparse& A) const;
    void assemble(Complex val, Sparse& A) const;
    /// The form behind the others, on values that the caller lends; not those of A. V is double or Complex; nVals 1 with
    /// constVal.
    template <class V>
    void assemble(const V* vals, unsigned long nVals, bool constVal, Sparse& A) const;

    /// The same for a list whose indices come along: they are compared first, one more pass over the list.
    void assemble(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                  const std::vector<double>& vals, Sparse& A) const;
    void assemble(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                  const std::vector<Complex>& vals, Sparse& A) const;
    /// Raises unless the list is that of the pattern.
    void checkIndices(const unsigned long* rows, unsigned long nRows, const unsigned long* cols,
                      unsigned long nCols) const;

private:
    struct Layout;
    boost::shared_ptr<const Layout> layout_;
};
