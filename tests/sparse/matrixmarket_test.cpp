// SPDX-License-Identifier: LicenseRef-qxkernel
// Matrix Market files: every kind of head, exact round trips, refusals with file, line and reason.

#include "matrixmarket.hpp"
#include "sparse_testing.hpp"

#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <cerrno>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace qxtest;

namespace {

Sparse readText(const std::string& text, const MatrixMarketOptions& options = {})
{
    std::istringstream stream(text);
    return readMatrixMarket(stream, "test.mtx", options);
}

std::string written(const Sparse& A)
{
    std::ostringstream stream;
    writeMatrixMarket(stream, A);
    return stream.str();
}

/// "line: reason" of the refusal.
std::string refusal(const std::string& text, const MatrixMarketOptions& options = {})
{
    try {
        readText(text, options);
    } catch (const qxbase::Exception& e) {
        EXPECT_EQ(e.getFile(0), "matrixmarket");
        EXPECT_EQ(e.getId(), "Invalid_matrix_file");
        std::string line, reason;
        for (const auto& [key, value] : e.getArgs(0)) {
            if (key == "File") {
                EXPECT_EQ(value, "test.mtx");
            }
            if (key == "Line")
                line = value;
            if (key == "Reason")
                reason = value;
        }
        return line + ": " + reason;
    }
    return "accepted";
}

const std::string general = "%%MatrixMarket matrix coordinate real general\n";

} // namespace

TEST(MatrixMarket, ReadsCoordinatesOfEveryField)
{
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate real general\n% a comment\n\n2 3 2\n"
                                    "1 3 -2.5e-1\n\n%another\n 2\t1  7\n")),
                     {{0, 0, -0.25}, {7, 0, 0}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket MATRIX Coordinate INTEGER General\n1 1 1\n1 1 -42\n")), {{-42}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate complex general\n1 2 1\n1 2 3 -4\n")),
                     {{0, cplx(3, -4)}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate pattern general\n2 2 2\n1 1\n2 1\n")),
                     {{1, 0}, {1, 0}}, 0));
}

TEST(MatrixMarket, ExpandsEverySymmetry)
{
    const std::string entries = "2 2 2\n1 1 4\n2 1 3\n";
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate real symmetric\n" + entries)), {{4, 3}, {3, 0}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 1 3\n")),
                     {{0, -3}, {3, 0}}, 0));
    const std::string hermitian = "%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 4 0\n2 1 3 5\n";
    EXPECT_TRUE(near(dense(readText(hermitian)), {{4, cplx(3, -5)}, {cplx(3, 5), 0}}, 0));
    EXPECT_EQ(readText(hermitian).getSymm(), Unsymmetric);
}

TEST(MatrixMarket, KeepsSymmetryAsASummandOnRequest)
{
    MatrixMarketOptions keep;
    keep.expand = false;
    const Sparse S = readText("%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 4\n2 1 3\n", keep);
    EXPECT_EQ(S.getSymm(), Symmetric);
    EXPECT_EQ(S.getNnz(), 2u);
    EXPECT_TRUE(near(dense(S), {{4, 3}, {3, 0}}, 0));
    const Sparse H = readText("%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 4 0\n2 1 3 5\n", keep);
    EXPECT_EQ(H.getSymm(), Hermitian);
    EXPECT_TRUE(near(dense(H), {{4, cplx(3, -5)}, {cplx(3, 5), 0}}, 0));
    EXPECT_EQ(refusal("%%MatrixMarket matrix coordinate real symmetric\n1 1 1\n1 1 5e-324\n", keep),
              ": diagonal value is too small to be halved");
}

TEST(MatrixMarket, ReadsArraysColumnByColumn)
{
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix array real general\n2 2\n1\n2\n3\n4\n")), {{1, 3}, {2, 4}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix array real symmetric\n2 2\n1\n2\n3\n")), {{1, 2}, {2, 3}}, 0));
    EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix array integer skew-symmetric\n2 2\n5\n")), {{0, -5}, {5, 0}}, 0));
    std::istringstream complex("%%MatrixMarket matrix array complex hermitian\n2 2\n1 0\n2 3\n4 0\n");
    const Matrix<2> H = readMatrixMarketArray(complex, "h");
    EXPECT_EQ(H[0], cplx(1, 0));
    EXPECT_EQ(H[1], cplx(2, 3));
    EXPECT_EQ(H[2], cplx(2, -3));
    std::istringstream coordinate(general + "1 1 0\n");
    EXPECT_EQ(raised([&] { readMatrixMarketArray(coordinate, "c"); }), "Invalid_matrix_file");
}

TEST(MatrixMarket, AddsEntriesOfOnePlaceAndKeepsZeros)
{
    const Sparse A = readText(general + "2 2 3\n2 1 1.5\n1 1 0\n2 1 2\n");
    EXPECT_EQ(A.getNnz(), 2u);
    EXPECT_TRUE(near(dense(A), {{0, 0}, {3.5, 0}}, 0));
    EXPECT_EQ(A.getForm(), FormSorted);
}

TEST(MatrixMarket, RoundTripsEveryDoubleExactly)
{
    std::mt19937_64 random(17);
    std::vector<Entry> list;
    const double special[] = {0.0, -0.0, DBL_MIN, 5e-324, DBL_MAX, -DBL_MAX, 0.1, 1.0 / 3.0, INFINITY, -INFINITY};
    for (double v : special)
        list.push_back({list.size(), 0, v});
    while (list.size() < 3000) {
        const std::uint64_t bits = random();
        double v;
        std::memcpy(&v, &bits, sizeof v);
        if (!std::isnan(v))
            list.push_back({list.size() % 100, list.size() / 100, v});
    }
    Sparse A = sparseOf(100, 30, list);
    A.removeDuplicates();
    A.format(FormSorted, false);
    EXPECT_TRUE(sameBits(readText(written(A)), A));

    Sparse Z = randomSparse(40, 50, 300, false, Unsymmetric, 3);
    Z.format(FormSorted, false);
    EXPECT_TRUE(sameBits(readText(written(Z)), Z));
}

TEST(MatrixMarket, RoundTripsNanAsNan)
{
    const Sparse A = sparseOf(1, 1, {{0, 0, NAN}});
    EXPECT_TRUE(std::isnan(readText(written(A)).getDoubleVal()[0]));
}

TEST(MatrixMarket, RoundTripsEveryLayout)
{
    MatrixMarketOptions keep;
    keep.expand = false;
    for (Symm_t symm : allLayouts)
        for (bool real : {true, false}) {
            Sparse A = randomSparse(30, symm == RowStored || symm == Unsymmetric ? 20 : 30, 90, real, symm, 5);
            if (A.getSymm() == Hermitian) // a diagonal the format can hold
                A = [&] {
                    std::vector<Entry> list = entries(A);
                    for (Entry& e : list)
                        if (e.row == e.col)
                            e.val = e.val.real();
                    return sparseOf(30, 30, list, false, Hermitian);
                }();
            const std::string text = written(A);
            EXPECT_TRUE(near(dense(readText(text)), dense(A), 0)) << name(symm);
            const Sparse kept = readText(text, keep);
            EXPECT_TRUE(near(dense(kept), dense(A), 0)) << name(symm);
            if (symm == Symmetric || symm == Hermitian) {
                EXPECT_EQ(written(kept), text);
            }
            EXPECT_EQ(kept.getSymm(), symm == RowStored ? Unsymmetric : A.getSymm());
        }
}

TEST(MatrixMarket, WritesTheHeadSizeAndOneBasedEntries)
{
    EXPECT_EQ(written(sparseOf(2, 3, {{0, 2, 0.5}, {1, 0, -3.0}})),
              "%%MatrixMarket matrix coordinate real general\n2 3 2\n2 1 -3\n1 3 0.5\n");
    EXPECT_EQ(written(sparseOf(1, 1, {{0, 0, cplx(0.1, 2)}}, false)),
              "%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 0.10000000000000001 2\n");
    std::ostringstream array;
    Matrix<2> D(2, 1, true);
    D.set(1, 0, 2.5);
    writeMatrixMarket(array, D);
    EXPECT_EQ(array.str(), "%%MatrixMarket matrix array real general\n2 1\n0\n2.5\n");
}

TEST(MatrixMarket, ReadsEveryLineEndingAndIgnoresTheLocale)
{
    const char* const before = std::setlocale(LC_ALL, nullptr);
    const std::string saved = before ? before : "C";
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // where there is none nothing changes
    for (const char* end : {"\n", "\r\n", "\r"}) {
        const std::string e = end;
        EXPECT_TRUE(near(dense(readText("%%MatrixMarket matrix coordinate real general" + e + "1 1 1" + e + "1 1 1.5" + e)),
                         {{1.5}}, 0));
    }
    std::setlocale(LC_ALL, saved.c_str());
}

TEST(MatrixMarket, RefusesWhatIsNotWellFormedWithLineAndReason)
{
    const std::string symmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "0: file is empty"},
        {"hello\n", "1: file does not begin with %%MatrixMarket"},
        {"%%MatrixMarket vector coordinate real general\n", "1: unknown object"},
        {"%%MatrixMarket matrix list real general\n", "1: unknown format"},
        {"%%MatrixMarket matrix coordinate quaternion general\n", "1: unknown field"},
        {"%%MatrixMarket matrix coordinate real round\n", "1: unknown symmetry"},
        {"%%MatrixMarket matrix coordinate real\n", "1: unknown symmetry"},
        {"%%MatrixMarket matrix coordinate real general 7\n", "1: text after the last number of the line"},
        {"%%MatrixMarket matrix array pattern general\n", "1: an array has no pattern"},
        {"%%MatrixMarket matrix coordinate real hermitian\n", "1: a Hermitian matrix is complex"},
        {"%%MatrixMarket matrix coordinate pattern skew-symmetric\n", "1: a pattern is not skew-symmetric"},
        {general, "1: file has no size line"},
        {general + "% only\n%comments\n", "3: file has no size line"},
        {general + "2 2\n", "2: number of entries is not a whole number"},
        {general + "-2 2 1\n", "2: number of rows is not a whole number"},
        {general + "2 2.0 1\n", "2: number of columns is not a whole number"},
        {general + "2 99999999999999999999 1\n", "2: number of columns is out of range"},
        {general + "2 2 600000000\n", "2: number of entries is out of range"},
        {general + "2 2 1 1\n", "2: text after the last number of the line"},
        {general + "2 2 2\n1 1 1\n", "3: file ends after 1 of 2 entries"},
        {general + "2 2 1\n1 1 1\n1 2 1\n", "4: more data than announced"},
        {general + "2 2 1\n0 1 1\n", "3: row index is out of range"},
        {general + "2 2 1\n3 1 1\n", "3: row index is out of range"},
        {general + "2 2 1\n1 3 1\n", "3: column index is out of range"},
        {general + "2 2 1\nx 1 1\n", "3: row index is not a whole number"},
        {general + "2 2 1\n1 1\n", "3: value is not a number"},
        {general + "2 2 1\n1 1 1,5\n", "3: value is not a number"},
        {general + "2 2 1\n1 1 1.5x\n", "3: value is not a number"},
        {general + "2 2 1\n1 1 1.5 2\n", "3: text after the last number of the line"},
        {general + "0 5 1\n1 1 1\n", "3: row index is out of range"},
        {"%%MatrixMarket matrix coordinate integer general\n1 1 1\n1 1 1.5\n",
         "3: value is not an integer that a double can hold"},
        {"%%MatrixMarket matrix coordinate integer general\n1 1 1\n1 1 9007199254740993000\n",
         "3: value is not an integer that a double can hold"},
        {"%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 1.5\n", "3: value is not a number"},
        {"%%MatrixMarket matrix coordinate pattern general\n1 1 1\n1 1 1.5\n",
         "3: text after the last number of the line"},
        {symmetric + "2 3 0\n", "2: a symmetric matrix is square"},
        {symmetric + "2 2 1\n1 2 1\n", "3: entry above the diagonal of a symmetric file"},
        {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n1 1 1\n",
         "3: diagonal entry of a skew-symmetric file"},
        {"%%MatrixMarket matrix coordinate complex hermitian\n1 1 1\n1 1 1 1\n",
         "3: a Hermitian matrix has a real diagonal"},
        {"%%MatrixMarket matrix array real general\n2 2\n1\n2\n3\n", "5: file ends before the last element"},
        {"%%MatrixMarket matrix array real general\n100000 100000\n", "2: number of elements is out of range"},
    };
    for (const auto& [text, wanted] : cases)
        EXPECT_EQ(refusal(text), wanted) << text;
}

TEST(MatrixMarket, RefusesMoreThanTheCallerAllowsBeforeTakingMemory)
{
    MatrixMarketOptions small;
    small.maxSize = small.maxEntries = 10;
    EXPECT_EQ(refusal(general + "11 1 0\n", small), "2: number of rows is out of range");
    EXPECT_EQ(refusal(general + "1 1 11\n", small), "2: number of entries is out of range");
    EXPECT_EQ(refusal("%%MatrixMarket matrix array real general\n4 4\n", small), "2: number of elements is out of range");
    EXPECT_EQ(refusal(general + "10 10 0\n", small), "accepted");
}

TEST(MatrixMarket, FilesThatCannotBeOpenedOrWrittenAreNamed)
{
    EXPECT_EQ(raised([] { readMatrixMarket("/no/such/file.mtx"); }, true), "matrixmarket:Cannot_open_matrix_file");
    EXPECT_EQ(failureOf([] { readMatrixMarket("/no/such/file.mtx"); }).getArgs(0),
              (qxbase::ExceptionArgs{{"File", "/no/such/file.mtx"}, {"Reason", std::strerror(ENOENT)}}));
    EXPECT_EQ(raised([] { writeMatrixMarket("/no/such/file.mtx", Sparse()); }), "Cannot_open_matrix_file");
    std::ostringstream broken;
    broken.setstate(std::ios::badbit);
    EXPECT_EQ(raised([&] { writeMatrixMarket(broken, Sparse()); }), "Cannot_write_matrix_file");
    const Sparse flat = [] { Sparse A = sparseOf(1, 2, {{0, 1, 1.0}}); A.getptrD()->symm = Symmetric; return A; }();
    EXPECT_EQ(raised([&] { written(flat); }), "Matrix_not_square");
}

TEST(MatrixMarket, ADirectoryIsRefusedByNameAndReason)
{
    const std::string folder = std::filesystem::temp_directory_path();
    const qxbase::ExceptionArgs wanted{{"File", folder}, {"Reason", std::strerror(EISDIR)}};

    EXPECT_EQ(failureOf([&] { readMatrixMarket(folder); }).getArgs(0), wanted);
    EXPECT_EQ(failureOf([&] { readMatrixMarketArray(folder); }).getArgs(0), wanted);
    EXPECT_EQ(failureOf([&] { writeMatrixMarket(folder, Sparse()); }).getArgs(0), wanted);
    EXPECT_EQ(raised([&] { readMatrixMarket(folder); }), "Cannot_open_matrix_file");
}

TEST(MatrixMarket, ValuesBeyondTheDoublesAreRefusedAndInfinitiesAreValues)
{
    for (const char* value : {"1e999", "-1e999", "1e309", "17976931348623159e300"})
        EXPECT_EQ(refusal(general + "1 1 1\n1 1 " + value + "\n"), "3: value is out of range") << value;
    EXPECT_EQ(readText(general + "1 1 1\n1 1 -inf\n").getDoubleVal()[0], -HUGE_VAL);
    EXPECT_EQ(readText(general + "1 1 1\n1 1 1.7976931348623157e308\n").getDoubleVal()[0], DBL_MAX);
    EXPECT_EQ(readText(general + "1 1 1\n1 1 1e-999\n").getDoubleVal()[0], 0.0); // what rounding gives
}

TEST(MatrixMarket, AnImaginaryDiagonalOfAHermitianFileIsDroppedOnRequest)
{
    const std::string text = "%%MatrixMarket matrix coordinate complex hermitian\n2 2 3\n1 1 4 1e-17\n2 1 1 2\n2 2 6 -3\n";
    ASSERT_EQ(refusal(text), "3: a Hermitian matrix has a real diagonal");

    const Sparse A = readText(text, {.dropImaginaryDiagonal = true});
    const Sparse H = readText(text, {.expand = false, .dropImaginaryDiagonal = true});

    EXPECT_EQ(written(A), "%%MatrixMarket matrix coordinate complex general\n2 2 4\n1 1 4 0\n2 1 1 2\n1 2 1 -2\n2 2 6 0\n");
    EXPECT_EQ(H.getSymm(), Hermitian);
    EXPECT_EQ(written(H), "%%MatrixMarket matrix coordinate complex hermitian\n2 2 3\n1 1 4 0\n2 1 1 2\n2 2 6 0\n");
    // Elsewhere it is no diagonal of a Hermitian matrix: left alone.
    EXPECT_EQ(written(readText("%%MatrixMarket matrix coordinate complex symmetric\n1 1 1\n1 1 4 1\n",
                               {.dropImaginaryDiagonal = true})),
              "%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 4 1\n");
}

TEST(MatrixMarket, RoundTripsThroughAFile)
{
    const std::string path = testing::TempDir() + "qx_matrixmarket_test.mtx";
    Sparse A = randomSparse(9, 7, 20, true, Unsymmetric, 2);
    A.format(FormSorted, false);
    writeMatrixMarket(path, A);
    EXPECT_TRUE(sameBits(readMatrixMarket(path), A));
    std::remove(path.c_str());
}

TEST(MatrixMarket, FailedAllocationsAreNamedAndLeakNothing)
{
    const std::string path = testing::TempDir() + "qx_matrixmarket_fault_test.mtx", target = path + ".out";
    const auto fill = [&](const char* text) { std::ofstream(path) << text; };
    const auto expectNamed = [](const char* what, const char* id, const std::function<void()>& call) {
        const long count = failEveryAllocation(call, [&](const FaultRun& run) {
            EXPECT_FALSE(run.badAlloc) << what << " " << run.n;
            if (run.faulted && !run.id.empty()) {
                EXPECT_EQ(run.id, id) << what << " " << run.n;
            }
            EXPECT_EQ(run.leaked, 0) << what << " " << run.n;
        });
        EXPECT_GT(count, 0) << what;
    };
    const char* const creating = "Out_of_memory_creating_sparse_matrix";
    MatrixMarketOptions summand;
    summand.expand = false;
    fill("%%MatrixMarket matrix coordinate complex hermitian\n3 3 2\n1 1 4 0\n3 2 3 5\n");
    expectNamed("sparse", creating, [&] { readMatrixMarket(path); });
    expectNamed("summand", creating, [&] { readMatrixMarket(path, summand); });
    const Sparse A = readMatrixMarket(path, summand);
    expectNamed("written", creating, [&] { writeMatrixMarket(target, A); });
    fill("%%MatrixMarket matrix array real general\n2 2\n1\n2\n3\n4\n");
    expectNamed("dense", creating, [&] { readMatrixMarketArray(path); });
    const Matrix<2> D = readMatrixMarketArray(path);
    expectNamed("dense written", creating, [&] { writeMatrixMarket(target, D); });
    std::remove(path.c_str());
    std::remove(target.c_str());
}

// --- Real matrices -------------------------------------------------------------------------------------------------

namespace {

/// Facts computed with NumPy and SciPy.
struct Facts
{
    const char* file;
    Index m, n, stored, expanded;
    double norm1, frobenius;
};

class RealMatrix : public testing::TestWithParam<Facts>
{
};

std::filesystem::path dataFolder()
{
    if (const char* folder = std::getenv("QX_DATA"))
        return std::filesystem::path(folder) / "matrices";
    for (std::filesystem::path p = std::filesystem::current_path(); p != p.root_path(); p = p.parent_path())
        if (std::filesystem::exists(p / "shared" / "data" / "matrices"))
            return p / "shared" / "data" / "matrices";
    return {};
}

} // namespace

TEST_P(RealMatrix, HasTheNormsThatNumpyFinds)
{
    const std::filesystem::path path = dataFolder() / (std::string(GetParam().file) + ".mtx");
    if (!std::filesystem::exists(path))
        GTEST_SKIP() << "no folder of real matrices (set QX_DATA)";
    const Sparse wanted = readMatrixMarket(path.string());
    Sparse A = readMatrixMarket(path.string());
    EXPECT_EQ(A.getM(), GetParam().m);
    EXPECT_EQ(A.getN(), GetParam().n);
    A.truncateCols(0.0);
    EXPECT_EQ(A.getNnz(), GetParam().expanded);

    double norm1 = 0.0, squares = 0.0;
    std::vector<double> columns(A.getN());
    for (const Entry& e : entries(A)) {
        columns[e.col] += std::abs(e.val);
        squares += std::norm(e.val);
    }
    for (double c : columns)
        norm1 = std::max(norm1, c);
    EXPECT_NEAR(norm1 / GetParam().norm1, 1.0, 1e-11);
    EXPECT_NEAR(std::sqrt(squares) / GetParam().frobenius, 1.0, 1e-11);

    EXPECT_TRUE(sameBits(readText(written(wanted)), wanted));
    MatrixMarketOptions keep;
    keep.expand = false;
    const Sparse S = readMatrixMarket(path.string(), keep);
    EXPECT_EQ(S.getNnz(), GetParam().stored);
    EXPECT_TRUE(near(dense(S), dense(wanted), 0));
}

INSTANTIATE_TEST_SUITE_P(Collection, RealMatrix,
                         testing::Values(Facts{"b1_ss", 7, 7, 15, 15, 2, 3.06865877077},
                                         Facts{"bfwa62", 62, 62, 450, 450, 11.8636136, 30.6387693398},
                                         Facts{"fs_183_1", 183, 183, 1069, 998, 1703177421.01, 1129409117.6},
                                         Facts{"494_bus", 494, 494, 1080, 1666, 40015.422479, 57513.1596173},
                                         Facts{"west0479", 479, 479, 1910, 1888, 382221.51, 710459.151843},
                                         Facts{"young1c", 841, 841, 4089, 4089, 474.46, 6484.53319916},
                                         Facts{"ash219", 219, 85, 438, 438, 9, 20.9284495365}),
                         [](const auto& fact) { return "M" + std::string(fact.param.file); });
