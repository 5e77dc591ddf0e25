// SPDX-License-Identifier: LicenseRef-qxkernel
#include "matrixmarket.hpp"

#include "qxnumber.hpp"
#include "sparse_detail.hpp"

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

using namespace qxsparse;

enum class Kind { Coordinate, Array };
enum class Field { Real, Integer, Complex, Pattern };
enum class Shape { General, Symmetric, SkewSymmetric, Hermitian };

/// The file's head line.
struct Head
{
    Kind kind = Kind::Coordinate;
    Field field = Field::Real;
    Shape shape = Shape::General;
    bool triangular() const { return shape != Shape::General; }
};

/// Entries as they stand in the file, 0-based; an array file's in column order.
struct Content
{
    Head head;
    unsigned long m = 0, n = 0;
    std::vector<unsigned long> row, col;
    std::vector<double> re;
    std::vector<cplx> z;

    bool isReal() const { return head.field != Field::Complex; }
    unsigned long size() const { return isReal() ? re.size() : z.size(); }
    cplx value(unsigned long k) const { return isReal() ? cplx(re[k]) : z[k]; }
};

/// Lines of a file, parted into words, with their numbers.
class Lines
{
public:
    Lines(std::istream& stream, const std::string& name) : stream_(stream), name_(name) {}

    [[noreturn]] void refuse(const std::string& reason, const qxbase::ExceptionArgs& more = {}) const
    {
        qxbase::ExceptionArgs args = {{"File", name_}, {"Line", std::to_string(number_)}, {"Reason", reason}};
        args.insert(args.end(), more.begin(), more.end());
        QX_RAISE("matrixmarket", "Invalid_matrix_file", args);
    }
    /// The next line, whatever is on it; false at the end of the file.
    bool next()
    {
        if (!qxGetline(stream_, text_))
            return false;
        ++number_;
        rest_ = text_;
        return true;
    }
    /// The next line that is neither blank nor a comment.
    bool nextData()
    {
        while (next()) {
            if (text_.starts_with('%'))
                continue;
            skipBlanks();
            if (!rest_.empty())
                return true;
        }
        return false;
    }
    std::string_view word()
    {
        skipBlanks();
        const std::size_t end = std::min(rest_.find_first_of(" \t\r\f\v"), rest_.size());
        const std::string_view w = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return w;
    }
    unsigned long count(const char* what, unsigned long least, unsigned long most)
    {
        const std::string_view w = word();
        unsigned long value = 0;
        const auto [end, error] = std::from_chars(w.data(), w.data() + w.size(), value);
        if (w.empty() || end != w.data() + w.size() || error == std::errc::invalid_argument)
            refuse(std::string(what) + " is not a whole number");
        if (error != std::errc() || value < least || value > most)
            refuse(std::string(what) + " is out of range", {{"Limit", std::to_string(most)}});
        return value;
    }
    double number(bool whole)
    {
        const std::string_view w = word();
        double value = 0.0;
        const std::size_t taken = qxutil::scanDouble(w, value);
        if (w.empty() || taken != w.size())
            refuse("value is not a number");
        if (!std::isfinite(value) && w.find_first_of("0123456789") != w.npos) // not "inf" or "nan"
            refuse("value is out of range");
        constexpr double exact = 9007199254740992.0; // 2^53
        if (whole && (w.find_first_not_of("+-0123456789") != w.npos || !(std::abs(value) <= exact)))
            refuse("value is not an integer that a double can hold");
        return value;
    }
    void end()
    {
        skipBlanks();
        if (!rest_.empty())
            refuse("text after the last number of the line");
    }

private:
    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\f\v"), rest_.size())); }

    std::istream& stream_;
    const std::string& name_;
    std::string text_;
    std::string_view rest_;
    unsigned long number_ = 0;
};

/// The value of a word in a table, whatever its letter case.
template <class E, std::size_t N>
E choice(Lines& lines, const char* what, const std::pair<const char*, E> (&table)[N])
{
    std::string w(lines.word());
    std::transform(w.begin(), w.end(), w.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 'a' - 'A') : c; });
    for (const auto& [name, value] : table)
        if (w == name)
            return value;
    lines.refuse(std::string("unknown ") + what);
}

Head readHead(Lines& lines)
{
    if (!lines.next())
        lines.refuse("file is empty");
    Head head;
    if (lines.word() != "%%MatrixMarket")
        lines.refuse("file does not begin with %%MatrixMarket");
    choice<int>(lines, "object", {{"matrix", 0}});
    head.kind = choice<Kind>(lines, "format", {{"coordinate", Kind::Coordinate}, {"array", Kind::Array}});
    head.field = choice<Field>(lines, "field", {{"real", Field::Real}, {"double", Field::Real},
                                                {"integer", Field::Integer}, {"complex", Field::Complex},
                                                {"pattern", Field::Pattern}});
    head.shape = choice<Shape>(lines, "symmetry", {{"general", Shape::General}, {"symmetric", Shape::Symmetric},
                                                   {"skew-symmetric", Shape::SkewSymmetric},
                                                   {"hermitian", Shape::Hermitian}});
    lines.end();
    if (head.kind == Kind::Array && head.field == Field::Pattern)
        lines.refuse("an array has no pattern");
    if (head.shape == Shape::Hermitian && head.field != Field::Complex)
        lines.refuse("a Hermitian matrix is complex");
    if (head.shape == Shape::SkewSymmetric && head.field == Field::Pattern)
        lines.refuse("a pattern is not skew-symmetric");
    return head;
}

void readValue(Lines& lines, Content& c, bool diagonal, const MatrixMarketOptions& options)
{
    const double re = c.head.field == Field::Pattern ? 1.0 : lines.number(c.head.field == Field::Integer);
    if (c.isReal()) {
        c.re.push_back(re);
        return;
    }
    double im = lines.number(false);
    if (c.head.shape == Shape::Hermitian && diagonal && im != 0.0) {
        if (!options.dropImaginaryDiagonal)
            lines.refuse("a Hermitian matrix has a real diagonal");
        im = 0.0;
    }
    c.z.emplace_back(re, im);
}

void readCoordinates(Lines& lines, Content& c, unsigned long count, const MatrixMarketOptions& options)
{
    for (unsigned long k = 0; k < count; ++k) {
        if (!lines.nextData())
            lines.refuse("file ends after " + std::to_string(k) + " of " + std::to_string(count) + " entries");
        const unsigned long i = lines.count("row index", 1, c.m), j = lines.count("column index", 1, c.n);
        if (c.head.triangular() && i < j)
            lines.refuse("entry above the diagonal of a symmetric file");
        if (c.head.shape == Shape::SkewSymmetric && i == j)
            lines.refuse("diagonal entry of a skew-symmetric file");
        c.row.push_back(i - 1);
        c.col.push_back(j - 1);
        readValue(lines, c, i == j, options);
        lines.end();
    }
}

void readElements(Lines& lines, Content& c, const MatrixMarketOptions& options)
{
    for (unsigned long j = 0; j < c.n; ++j) {
        const unsigned long first = !c.head.triangular() ? 0 : c.head.shape == Shape::SkewSymmetric ? j + 1 : j;
        for (unsigned long i = first; i < c.m; ++i) {
            if (!lines.nextData())
                lines.refuse("file ends before the last element");
            c.row.push_back(i);
            c.col.push_back(j);
            readValue(lines, c, i == j, options);
            lines.end();
        }
    }
}

Content read(std::istream& stream, const std::string& name, const MatrixMarketOptions& options)
{
    Lines lines(stream, name);
    Content c;
    c.head = readHead(lines);
    if (!lines.nextData())
        lines.refuse("file has no size line");
    c.m = lines.count("number of rows", 0, options.maxSize);
    c.n = lines.count("number of columns", 0, options.maxSize);
    const bool coordinate = c.head.kind == Kind::Coordinate;
    const unsigned long count = coordinate ? lines.count("number of entries", 0, options.maxEntries) : 0;
    lines.end();
    if (!coordinate && c.m != 0 && c.n > options.maxEntries / c.m)
        lines.refuse("number of elements is out of range", {{"Limit", std::to_string(options.maxEntries)}});
    if (c.head.triangular() && c.m != c.n)
        lines.refuse("a symmetric matrix is square");
    if (coordinate)
        readCoordinates(lines, c, count, options);
    else
        readElements(lines, c, options);
    if (lines.nextData())
        lines.refuse("more data than announced");
    if (stream.bad())
        lines.refuse("file cannot be read");
    return c;
}

/// The mirror of a value below the diagonal.
cplx mirrored(Shape shape, const cplx& value)
{
    return shape == Shape::SkewSymmetric ? -value : shape == Shape::Hermitian ? std::conj(value) : value;
}

/// Appends the upper triangle.
void expand(Content& c)
{
    for (unsigned long k = 0, count = c.size(); k < count; ++k) {
        if (c.row[k] == c.col[k])
            continue;
        c.row.push_back(c.col[k]);
        c.col.push_back(c.row[k]);
        const cplx value = mirrored(c.head.shape, c.value(k));
        if (c.isReal())
            c.re.push_back(value.real());
        else
            c.z.push_back(value);
    }
}

Sparse assemble(Content& c, const std::string& name, bool expanded)
{
    const bool summand = !expanded && (c.head.shape == Shape::Symmetric || c.head.shape == Shape::Hermitian);
    if (summand) {
        for (unsigned long k = 0; k < c.size(); ++k) {
            if (c.row[k] != c.col[k])
                continue;
            const cplx half = 0.5 * c.value(k);
            if (std::isfinite(std::abs(half)) && half + half != c.value(k))
                QX_RAISE("matrixmarket", "Invalid_matrix_file",
                         qxbase::ExceptionArgs{{"File", name}, {"Reason", "diagonal value is too small to be halved"}});
            if (c.isReal())
                c.re[k] = half.real();
            else
                c.z[k] = half;
        }
    } else if (c.head.triangular()) {
        expand(c);
    }
    Sparse A;
    if (c.isReal())
        A.triplet2sparse(c.row, c.col, c.re, c.m, c.n);
    else
        A.triplet2sparse(c.row, c.col, c.z, c.m, c.n);
    A.format(FormSorted, false);
    if (summand)
        A.setSymm(c.head.shape == Shape::Hermitian ? Hermitian : Symmetric);
    return A;
}

/// Runs f; every failed allocation has the one name, those of operations on matrices too.
template <class F>
auto creating(const F& f)
{
    constexpr const char* id = "Out_of_memory_creating_sparse_matrix";
    try {
        return guarded(f, id);
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Out_of_memory_operation_sparse_matrix")
            QX_RAISE("sparse", id);
        throw;
    }
}

[[noreturn]] void refuseFile(const std::string& path, const std::string& reason)
{
    QX_RAISE("matrixmarket", "Cannot_open_matrix_file", qxbase::ExceptionArgs{{"File", path}, {"Reason", reason}});
}

/// A directory opens like a file, and then has nothing to read.
void refuseDirectory(const std::string& path)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        refuseFile(path, std::make_error_code(std::errc::is_a_directory).message());
}

template <class Read>
auto fromFile(const std::string& path, const Read& readStream)
{
    return creating([&] {
        refuseDirectory(path);
        errno = 0;
        std::ifstream file(path, std::ios::binary);
        if (!file)
            refuseFile(path, std::generic_category().message(errno));
        return readStream(file);
    });
}

template <class Write>
void toFile(const std::string& path, const Write& writeStream)
{
    creating([&] {
        errno = 0;
        std::ofstream file(path, std::ios::binary);
        if (!file)
            refuseFile(path, std::generic_category().message(errno));
        writeStream(file);
        file.close();
        if (!file)
            QX_RAISE("matrixmarket", "Cannot_write_matrix_file", "File", path);
    });
}

/// Collects text and passes it on in large pieces.
class Writer
{
public:
    Writer(std::ostream& stream, const std::string& name) : stream_(stream), name_(name) {}
    ~Writer() = default;

    Writer& operator<<(const char* text)
    {
        text_ += text;
        return *this;
    }
    Writer& operator<<(unsigned long value)
    {
        char digits[24];
        text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
        return *this;
    }
    Writer& operator<<(double value)
    {
        text_ += qxutil::formatDouble(value, 17);
        return *this;
    }
    Writer& operator<<(const cplx& value) { return *this << value.real() << " " << value.imag(); }
    void endLine()
    {
        text_ += '\n';
        if (text_.size() > 65536)
            flush();
    }
    void finish()
    {
        flush();
        stream_.flush();
        if (!stream_)
            QX_RAISE("matrixmarket", "Cannot_write_matrix_file", "File", name_);
    }

private:
    void flush()
    {
        stream_.write(text_.data(), static_cast<std::streamsize>(text_.size()));
        text_.clear();
    }

    std::ostream& stream_;
    const std::string& name_;
    std::string text_;
};

/// The lower triangle of the matrix that a summand stands for: entries moved below the diagonal, the diagonal doubled.
template <class T>
Sparse lowerTriangle(const llsparse<T>& s)
{
    std::vector<unsigned long> row, col;
    std::vector<T> val;
    for (unsigned long j = 0; j < s.n; ++j)
        for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p) {
            const unsigned long i = s.row[p];
            row.push_back(std::max(i, j));
            col.push_back(std::min(i, j));
            T value = s.symm == Hermitian && i < j ? qxsparse::conjugate(s.val[p]) : s.val[p];
            if (i == j)
                value += s.symm == Hermitian ? qxsparse::conjugate(value) : value;
            val.push_back(value);
        }
    Sparse lower;
    lower.triplet2sparse(row, col, val, s.m, s.n);
    lower.format(FormSorted, false);
    return lower;
}

void writeEntries(Writer& out, const Sparse& A)
{
    visitStore(A, [&](const auto& s) {
        const bool byRow = s.symm == RowStored;
        for (unsigned long j = 0; j < s.n; ++j)
            for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p) {
                const unsigned long r = byRow ? j : s.row[p], c = byRow ? s.row[p] : j;
                out << r + 1 << " " << c + 1 << " " << s.val[p];
                out.endLine();
            }
    });
}

} // namespace

Sparse readMatrixMarket(std::istream& stream, const std::string& name, const MatrixMarketOptions& options)
{
    return creating([&] {
        Content c = read(stream, name, options);
        return assemble(c, name, options.expand);
    });
}

Sparse readMatrixMarket(const std::string& path, const MatrixMarketOptions& options)
{
    return fromFile(path, [&](std::istream& file) { return readMatrixMarket(file, path, options); });
}

Matrix<2> readMatrixMarketArray(std::istream& stream, const std::string& name, const MatrixMarketOptions& options)
{
    return creating([&] {
        Content c = read(stream, name, options);
        if (c.head.kind != Kind::Array)
            QX_RAISE("matrixmarket", "Invalid_matrix_file",
                     qxbase::ExceptionArgs{{"File", name}, {"Line", "1"}, {"Reason", "file is not an array"}});
        if (c.head.triangular())
            expand(c);
        Matrix<2> A(c.m, c.n, c.isReal());
        for (unsigned long k = 0; k < c.size(); ++k) {
            if (c.isReal())
                A.getdArr()(c.row[k], c.col[k]) = c.re[k];
            else
                A.getzArr()(c.row[k], c.col[k]) = c.z[k];
        }
        return A;
    });
}

Matrix<2> readMatrixMarketArray(const std::string& path, const MatrixMarketOptions& options)
{
    return fromFile(path, [&](std::istream& file) { return readMatrixMarketArray(file, path, options); });
}

void writeMatrixMarket(std::ostream& stream, const Sparse& A, const std::string& name)
{
    creating([&] {
        const bool summand = A.getSymm() == Symmetric || A.getSymm() == Hermitian;
        if (summand && A.getM() != A.getN())
            QX_RAISE("sparse", "Matrix_not_square");
        const Sparse written = summand ? visitStore(A, [](const auto& s) { return lowerTriangle(s); }) : A;
        Writer out(stream, name);
        out << "%%MatrixMarket matrix coordinate " << (A.isReal() ? "real" : "complex")
            << (A.getSymm() == Symmetric   ? " symmetric"
                : A.getSymm() == Hermitian ? " hermitian"
                                           : " general");
        out.endLine();
        out << A.getM() << " " << A.getN() << " " << written.getNnz();
        out.endLine();
        writeEntries(out, written);
        out.finish();
    });
}

void writeMatrixMarket(const std::string& path, const Sparse& A)
{
    toFile(path, [&](std::ostream& file) { writeMatrixMarket(file, A, path); });
}

void writeMatrixMarket(std::ostream& stream, const Matrix<2>& A, const std::string& name)
{
    creating([&] {
        Writer out(stream, name);
        out << "%%MatrixMarket matrix array " << (A.isReal() ? "real" : "complex") << " general";
        out.endLine();
        out << A.size(0) << " " << A.size(1);
        out.endLine();
        for (unsigned long k = 0; k < A.size(); ++k) {
            if (A.isReal())
                out << A[k].real();
            else
                out << A[k];
            out.endLine();
        }
        out.finish();
    });
}

void writeMatrixMarket(const std::string& path, const Matrix<2>& A)
{
    toFile(path, [&](std::ostream& file) { writeMatrixMarket(file, A, path); });
}
