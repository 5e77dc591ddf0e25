// SPDX-License-Identifier: LicenseRef-qxkernel
// A sparse matrix from a file: what it is, what it does to a vector, how relaxation converges on it, what it looks like.
//
//   The residual of A x = b is r = A x - b. A forward sweep of successive over-relaxation visits the unknowns in order and
//   changes each by t_j = -omega r_j / a_jj, which makes its own equation (for omega = 1) hold. For a symmetric positive
//   definite A it converges for 0 < omega < 2.
//
// Builds on: ten_lines.   Run: matrix_market MATRIX.mtx [PATTERN.svg]
// Expect: the head line, norms and symmetry, the norm of A applied to ones, the residual after sweeps, a picture.

#include "support/program.hpp"

#include "matrixmarket.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Index = unsigned long;

/// f(row, column, value) for every entry of a plain matrix.
template <class F>
void forEachEntry(const Sparse& A, const F& f)
{
    for (Index j = 0; j < A.getN(); ++j)
        for (Index p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p)
            f(A.getRow()[p], j, A.isReal() ? std::complex<double>(A.getDoubleVal()[p]) : A.getDcmplxVal()[p]);
}

// 1. What it is.
void printFacts(const Sparse& A)
{
    std::ostringstream text;
    text << A;
    std::string head = text.str();
    head.resize(head.find('\n'));

    std::vector<double> columns(A.getN()), rows(A.getM());
    double squares = 0.0;
    forEachEntry(A, [&](Index i, Index j, const std::complex<double>& a) {
        columns[j] += std::abs(a);
        rows[i] += std::abs(a);
        squares += std::norm(a);
    });
    const auto largest = [](const std::vector<double>& v) { return v.empty() ? 0.0 : *std::max_element(v.begin(), v.end()); };
    const char* symmetry = A.isSymmetric(1e-12, Trans)       ? "symmetric"
                           : A.isSymmetric(1e-12, ConjTrans) ? "Hermitian"
                                                             : "not symmetric";
    std::printf("%s\n%s, %s\n", head.c_str(), A.isReal() ? "real" : "complex", symmetry);
    std::printf("norms: 1 %.6g, infinity %.6g, Frobenius %.6g\n", largest(columns), largest(rows), std::sqrt(squares));
}

// 2. What it does: A times the vector of ones.
void multiply(const Sparse& A)
{
    Matrix<1> ones(A.getN(), true);
    ones = 1.0;
    std::printf("|A 1| = %.6g\n", norm(A * ones));
}

// 3. Relaxation on A x = A 1 from x = 0: the residual r = A x - b starts at -b. SORItUpdater keeps it.
void relax(Sparse A)
{
    if (A.getM() != A.getN()) {
        std::printf("not square: no relaxation\n");
        return;
    }
    try {
        A.format(FormDiag, true);
    } catch (const qxbase::Exception&) {
        std::printf("zero on the diagonal: no relaxation\n");
        return;
    }
    Matrix<1> x(A.getN(), true), r(A.getN(), true), ones(A.getN(), true);
    ones = 1.0;
    yMinusAMulx(r, A, ones, NoTrans);
    const double start = norm(r);
    for (int sweep = 1; sweep <= 100; ++sweep) {
        SORItUpdater(A, r, x, 1.0, false);
        SORItUpdater(A, r, x, 1.0, true);
        if (sweep == 1 || sweep == 10 || sweep == 100)
            std::printf("after %3d symmetric sweeps |r| / |b| = %.2e\n", sweep, norm(r) / start);
    }
}

// 4. What it looks like: entries by cell of a raster, darker where there are more.
void draw(const Sparse& A, const std::string& path)
{
    const Index longest = std::max({A.getM(), A.getN(), 1ul}), cells = std::min(longest, 200ul);
    const double scale = double(cells) / double(longest);
    const Index width = Index(std::ceil(double(A.getN()) * scale)), height = Index(std::ceil(double(A.getM()) * scale));
    std::vector<Index> count(std::max(width * height, 1ul));
    forEachEntry(A, [&](Index i, Index j, const std::complex<double>&) {
        ++count[Index(double(j) * scale) + width * Index(double(i) * scale)];
    });
    const double most = double(*std::max_element(count.begin(), count.end()));

    std::ofstream svg(path);
    svg << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='-1 -1 " << width + 2 << ' ' << height + 2
        << "' width='600' shape-rendering='crispEdges'>\n<rect x='-0.5' y='-0.5' width='" << width + 1 << "' height='"
        << height + 1 << "' fill='#fff' stroke='#888' stroke-width='0.3'/>\n";
    for (Index cell = 0; cell < width * height; ++cell)
        if (count[cell] > 0)
            svg << "<rect x='" << cell % width << "' y='" << cell / width << "' width='1' height='1' fill='#1f4e8c' opacity='"
                << 0.35 + 0.65 * double(count[cell]) / most << "'/>\n";
    svg << "</svg>\n";
    svg.close();
    if (!svg)
        throw qxbase::Exception("matrix_market", __LINE__, "Cannot_write_picture", "File", path);
    std::printf("pattern: %s\n", path.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    examples::Options options("matrix_market", "MATRIX.mtx [PATTERN.svg]", "Explains, relaxes and draws a sparse matrix.");
    return examples::guarded(options, [&] {
        const std::vector<std::string> words = options.read(argc, argv);
        if (options.helpWanted()) {
            std::cout << options.help();
            return 0;
        }
        if (words.empty() || words.size() > 2)
            throw examples::UsageError("a matrix is needed, see matrix_market --help");
        const Sparse A = readMatrixMarket(words[0]);
        printFacts(A);
        multiply(A);
        relax(A);
        if (words.size() == 2)
            draw(A, words[1]);
        return 0;
    });
}

// Try: omega 1.5 in relax; readMatrixMarket with expand = false, and what the head line says then.
