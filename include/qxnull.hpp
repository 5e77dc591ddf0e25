// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "qxexport.hpp"
#include "sparse.hpp"

#include <utility>
#include <vector>

namespace qxbase {
class Prop;
}
namespace qxutil {
class RunInfo;
}

// Elimination of linear constraints N^H u = b by bases of the null space.
//
// N is d by c: one row for each unknown, one column for each constraint; NT is its transpose, c by d. With r the
// numerical rank of N,
//
//     Null   (d, d-r)   N^H Null = 0
//     Compl  (d, r)     [Null Compl] is invertible
//     Range  (r, c)     Range = Compl^H N, of rank r
//
// so that N^H u = b is solved by u = Null z + Compl y for any z, with Range^H y = b. A constraint that repeats others
// adds nothing to the rank and is no failure; whether its b contradicts is seen when y is solved for.
//
// With non-ideal constraints a second matrix NF of the size of N constrains the trial side; NullF, ComplF, RangeF satisfy
// the same table with NF. N and NF must have the same rank.
//
// Failures come from "qxnull": "Internal_error_solver" and "Internal_solver_error" with a detail (both spellings are
// part of the interface), "Inconsistent_non-ideal_constraint" with both ranks and the constraints (0-based) that have a
// pivot in one matrix only, "Constraint_elimination_failed_in_SVD", "Out_of_memory_constraint_elimination", and the
// cancel exceptions "<CANCEL>qxNullSp_cancelled", "<CANCEL>qxNullOrth_cancelled". Outputs are written when everything
// has succeeded; those that are not wanted stay as they are.
// The run reports under "Null space" and is looked at between the columns of every pass, not inside one LAPACK call.
// Inputs may be stored in any way; their columns are sorted, no entry changes. Threads: one call uses one thread and has
// no state beyond it.

/// The method.
///
/// Sparse: Gauss elimination on the columns of N^H, sparsest columns first. Each column of Null belongs to an unknown
/// that is no pivot, in ascending order, and is 0 at all pivots but those it needs. Where a constraint has at most two
/// pivot candidates of the same count, Null is the identity on the unknowns that are no pivots and Compl consists of unit
/// vectors at the pivots, in the order in which they were found; then Range is N at these rows, without rounding.
/// Elsewhere Compl holds the pivots' column operations. An entry is a candidate when it is above 1e-10 times the largest
/// norm that its column ever had: constraints whose scales differ by more than that must be scaled by the caller. The
/// scale of the whole matrix does not matter; a norm that overflows beside it is refused ("Internal_error_solver").
/// Cost: linear in the entries for constraints with few unknowns each.
///
/// Orthonormal: singular values of each connected block of unknowns and constraints, as a dense matrix. The columns of
/// Null and Compl together are orthonormal and N = Compl Range. Singular values from 1e-10 times the largest of the block
/// on count; a block of one constraint counts if its norm is above 1e-10. Unknowns without constraints are unit vectors.
enum NullFun : int { NullFunSparse = 1, NullFunOrthonormal = 2 };

/// One of N and NT may be 0 by 0: it is made from the other; with both absent the outputs wanted become 0 by 0. NF may be 0 by 0 unless
/// something of the second triple is wanted. reorder: the columns of NullF are permuted and negated to be as near to
/// those of Null as they can (see reorderNullF).
///
/// A matrix without entries needs no method: any value is taken then.
/// Fails: "Internal_error_solver" with "Mismatching N and NT matrices." (sizes, entries, types) or "Mismatching N and NF
/// matrices." (sizes); "Internal_solver_error" for another method ("not allowed value for nullfun"), for a real and a
/// complex matrix in the sparse method, and if the ranks do not add up ("r vectors does not sum up correct.").
QX_API void qxNull(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, bool wantNull,
                   Sparse& Null, bool wantCompl, Sparse& Compl, bool wantRange, Sparse& Range, Sparse& NullF,
                   bool wantNullF, Sparse& ComplF, bool wantComplF, Sparse& RangeF, bool wantRangeF,
                   const NullFun& method, bool reorder);

/// The same on properties. in: "n", "nt", "nf" (Sparse), "nullfun" (int), "reorder" (int), "blasthreads" (int: threads of
/// BLAS in the orthonormal method; 1, the default, gives the same bits on every machine, 0 leaves the number to BLAS), "out"
/// (list of the outputs wanted). out: "null", "compl", "range", "nullf", "complf", "rangef" (Sparse).
///
/// Fails: "No_N_matrix_given"; "No_NF_matrix_given" if one of the last three is wanted without "nf"
QX_API void qxNull(qxutil::RunInfo& run, qxbase::Prop& in, qxbase::Prop& out);

/// Supplies defaults: "nullfun" 1, "reorder" 1, "blasthreads" 1, "out" all of the first triple, and of the second if "nf" is there,
/// "nargout" the length of "out".
QX_API void qxNullCheck(qxbase::Prop& in);

/// Sparse method. sel, selF (3): whether Null, Compl, Range are built. NF and NFT may be 0 by 0; with NF pivots are chosen
/// jointly as long as both matrices have candidates in common. The short form makes the transposes and builds the first
/// triple only.
QX_API void qxNullSp(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, const Sparse& NFT,
                     Sparse& Null, Sparse& Compl, Sparse& Range, Sparse& NullF, Sparse& ComplF, Sparse& RangeF,
                     const Array<bool, 1>& sel, const Array<bool, 1>& selF);
QX_API void qxNullSp(qxutil::RunInfo& run, const Sparse& N, const Sparse& NF, Sparse& Null, Sparse& Compl,
                     Sparse& Range, const Array<bool, 1>& sel);

/// Connected blocks of unknowns: ascending lists of rows, ordered by their smallest row.
using NullBlocks = std::vector<std::vector<unsigned long>>;
/// (constraint, number of its block), for each constraint with entries, in ascending order of constraints.
using NullPairs = std::vector<std::pair<unsigned long, unsigned long>>;

/// Splits N into blocks that share neither unknowns nor constraints. Rows and columns without entries are in none.
/// Cost: linear in the entries.
/// Fails: "Internal_solver_error", "r or s vector does not sum up correct."
QX_API void blockdsp(const Sparse& N, const Sparse& NT, NullBlocks& blocks, NullPairs& pairs);

/// Orthonormal method on given blocks.
QX_API void qxNullOrth(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const NullBlocks& blocks,
                       const NullPairs& pairs, Sparse& Null, Sparse& Compl, Sparse& Range, const Array<bool, 1>& sel);

/// Reorders the columns of NullF: with P = NullF^H Null, each column of P in turn takes the unused row of largest
/// magnitude as its partner; a partner with negative real part is negated. If a column finds no row, a warning goes to
/// the standard output stream and NullF stays as it was.
QX_API void reorderNullF(Sparse& NullF, const Sparse& Null);
