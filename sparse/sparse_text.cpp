// The text form of a matrix.

#include "sparse_detail.hpp"

#include <iomanip>
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

std::ostream& operator<<(std::ostream& stream, const Sparse& A)
{
    const std::ios_base::fmtflags flags = stream.flags(std::ios_base::dec | std::ios_base::right);
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
    stream.flags(flags);
    return stream;
}
