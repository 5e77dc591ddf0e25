// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "matrix.hpp"
#include "qxexport.hpp"
#include "sparse.hpp"

#include <iosfwd>
#include <string>

/// How a Matrix Market file is read.
struct MatrixMarketOptions
{
    /// True: symmetric and Hermitian files become plain matrices with both triangles. False: they become Symmetric and
    /// Hermitian stores, lower triangle with half the diagonal. Skew-symmetric files are always expanded.
    bool expand = true;
    /// Files that announce more rows or columns are refused: each takes 12 bytes at once, however short the file is.
    unsigned long maxSize = 1ul << 24;
    /// Files that announce more entries, or elements of an array, are refused. Their memory is taken as they arrive.
    unsigned long maxEntries = 0x1ffffffe;
    /// A Hermitian matrix has a real diagonal, and files that claim otherwise are refused. True: the imaginary parts, rounding
    /// of the program that wrote the file say, are dropped instead.
    bool dropImaginaryDiagonal = false;
};

/// Reads and writes matrices in the Matrix Market exchange format: coordinate and array; real, integer, complex and
/// pattern (values 1); general, symmetric, skew-symmetric and Hermitian.
///
/// Sparse matrices may come from both kinds of file; every element of an array file becomes an entry. Entries of one
/// place are added, zeros are kept, columns end sorted. Numbers are written with 17 digits: reading gives back the same
/// doubles, NaN and infinities included. Indices, letter case, blank lines and comments as the format says; the point
/// is the decimal point whatever the locale.
///
/// A file that is not well-formed is refused: "Invalid_matrix_file" from "matrixmarket" with "File", "Line" and
/// "Reason", and "Limit" for a count out of range; a value beyond the doubles is refused too, "inf" and "nan" are values.
/// Further failures: "Cannot_open_matrix_file" with "File" and "Reason", "Cannot_write_matrix_file" with "File",
/// "Out_of_memory_creating_sparse_matrix". `name` stands for the file in messages.
/// Source: Boisvert, Pozo, Remington, The Matrix Market Exchange Formats: Initial Design, NISTIR 5935, 1996.
QX_API Sparse readMatrixMarket(std::istream& stream, const std::string& name,
                               const MatrixMarketOptions& options = MatrixMarketOptions());
QX_API Sparse readMatrixMarket(const std::string& path, const MatrixMarketOptions& options = MatrixMarketOptions());
/// An array file as a dense matrix; a coordinate file is refused.
QX_API Matrix<2> readMatrixMarketArray(std::istream& stream, const std::string& name,
                                       const MatrixMarketOptions& options = MatrixMarketOptions());
QX_API Matrix<2> readMatrixMarketArray(const std::string& path,
                                       const MatrixMarketOptions& options = MatrixMarketOptions());

/// Writes the matrix that A stands for, in coordinate form: Symmetric and Hermitian stores as such (mirrored entries are
/// added), others as general.
QX_API void writeMatrixMarket(std::ostream& stream, const Sparse& A, const std::string& name = "stream");
QX_API void writeMatrixMarket(const std::string& path, const Sparse& A);
/// Writes A in array form, general.
QX_API void writeMatrixMarket(std::ostream& stream, const Matrix<2>& A, const std::string& name = "stream");
QX_API void writeMatrixMarket(const std::string& path, const Matrix<2>& A);
