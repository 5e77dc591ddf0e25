// SPDX-License-Identifier: LicenseRef-qxkernel
// The text form of a matrix.

#include "sparse_detail.hpp"

#include <iomanip>
#include <locale>
#include <ostream>
#include <sstream>

namespace {

std::string text(double value)
{
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << std::setprecision(6) << value;
    return out.str();
}

std::string text(const std::complex<double>& value)
{
    std::string both(1, '(');
    return both.append(text(value.real())).append(1, ',').append(text(value.imag())).append(1, ')');
}

} // namespace

namespace {

/// Plain decimal numbers for a scope, whatever the stream's own format and locale are.
class PlainNumbers
{
public:
    explicit PlainNumbers(std::ostream& stream)
        : stream_(stream), flags_(stream.flags(std::ios_base::dec | std::ios_base::right)),
          locale_(stream.imbue(std::locale::classic())), fill_(stream.fill(' '))
    {
        stream.width(0);
    }
    ~PlainNumbers()
    {
        stream_.flags(flags_);
        stream_.imbue(locale_);
        stream_.fill(fill_);
    }
    PlainNumbers(const PlainNumbers&) = delete;
    PlainNumbers& operator=(const PlainNumbers&) = delete;

private:
    std::ostream& stream_;
    std::ios_base::fmtflags flags_;
    std::locale locale_;
    char fill_;
};

} // namespace

std::ostream& operator<<(std::ostream& stream, const Sparse& A)
{
    const PlainNumbers plain(stream);
    stream << "Sparse " << A.getM() << "-by-" << A.getN() << " matrix. Nnz = " << A.getNnz() << ".\n";
    if (A.getSymm() != Unsymmetric)
        stream << "Symmetric.\n";
    stream << "    Row    Col               Value\n";
    qxsparse::visitStore(A, [&](const auto& s) {
        for (unsigned long j = 0; j < s.n; ++j)
            for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p) {
                const bool byRow = s.symm == RowStored;
                stream << std::setw(7) << (byRow ? j : s.row[p]) << std::setw(7) << (byRow ? s.row[p] : j)
                       << std::setw(20) << text(s.val[p]) << '\n';
            }
    });
    return stream;
}
