// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <complex>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace examples {

/// Numbers in named columns of equal length.
struct Table
{
    std::vector<std::string> names;
    std::vector<std::vector<double>> columns;
    std::string file;               ///< where it came from
    std::vector<long> lines;        ///< the line of each row in that file

    std::size_t rows() const { return columns.empty() ? 0 : columns.front().size(); }
    /// Position of a column, -1 if there is none of that name.
    int find(const std::string& name) const;
    /// The names that formulas can use: letters, digits and "_", no digit first.
    std::vector<std::string> variables() const;
    /// The column; raises FileError naming the file when it is missing.
    const std::vector<double>& column(const std::string& name) const;
};

/// Reads comma-separated numbers under a header line of distinct column names. A name with a comma, or that is a number, stands
/// between quotes: what CsvWriter writes is read.
///
/// Any line ending, blank lines skipped, decimal point whatever the locale; "nan" and "inf" are numbers. Raises FileError
/// with file and line: unreadable file, no header, bad or repeated name, ragged row, anything that is no number, and says
/// so when the cause looks like a decimal comma.
Table readCsv(const std::string& file);
Table readCsv(std::istream& in, const std::string& file);

/// Writes a header and one row a point, each number with the fewest digits that read back to the same bits.
/// A complex column "z" becomes the two columns "z.re" and "z.im".
class CsvWriter
{
public:
    void add(const std::string& name, const std::vector<double>& values);
    void add(const std::string& name, const std::vector<std::complex<double>>& values);
    void write(std::ostream& out) const;

private:
    struct Column
    {
        std::string name;
        const double* first;
        std::size_t stride;
        std::size_t size;
    };
    std::vector<Column> columns_;   // lent: the vectors outlive the writer
};

/// The shortest decimal text that reads back to the same double; "nan" for each NaN.
std::string toText(double value);
/// Reads all of text as a number; false if it is none.
bool fromText(const std::string& text, double& value);

} // namespace examples
