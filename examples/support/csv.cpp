// SPDX-License-Identifier: LicenseRef-qxkernel
#include "csv.hpp"

#include "fileerror.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <istream>
#include <iterator>
#include <limits>
#include <ostream>

namespace examples {
namespace {

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isName(const std::string& text)
{
    return !text.empty() && isLetter(text.front()) &&
           std::all_of(text.begin(), text.end(), [](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

bool isNumber(const std::string& text)
{
    double ignored = 0.0;
    return fromText(text, ignored);
}

// One line without its ending, whichever of the three it is.
bool nextLine(std::istream& in, std::string& line)
{
    line.clear();
    char c = 0;
    bool any = false;
    while (in.get(c)) {
        any = true;
        if (c == '\n')
            return true;
        if (c == '\r') {
            if (in.peek() == '\n')
                in.get();
            return true;
        }
        line += c;
    }
    return any;
}

// A name between quotes may hold anything; a quote in it is doubled. `ends` is told how the field ended: false, within quotes.
std::string quotedName(const std::string& line, std::size_t& at, bool& ends)
{
    std::string name;
    for (ends = false; ++at < line.size();) {
        if (line[at] == '"' && line.compare(at, 2, "\"\"") != 0) {
            ends = true;
            at = line.find_first_not_of(" \t", at + 1);
            break;
        }
        at += line[at] == '"';
        name += line[at];
    }
    at = std::min(at, line.size());
    return name;
}

std::vector<std::string> fields(const std::string& line)
{
    std::vector<std::string> f;
    std::size_t start = 0;
    for (std::size_t comma = line.find(','); comma != std::string::npos; comma = line.find(',', start)) {
        f.push_back(trimmed(line.substr(start, comma - start)));
        start = comma + 1;
    }
    f.push_back(trimmed(line.substr(start)));
    return f;
}

constexpr std::size_t kLongestHeader = 1000000; // where a damaged file stops being read

const char* const kDecimalComma = "; numbers need a decimal point, and commas between them";

// Names stand bare or between quotes. A bare one that is a number belongs to a table without a header.
void readHeader(const std::string& line, long number, Table& table)
{
    for (std::size_t at = 0; at <= line.size(); ++at) {
        at = std::min(line.find_first_not_of(" \t", at), line.size());
        std::string name;
        if (at < line.size() && line[at] == '"') {
            bool ends = false;
            name = quotedName(line, at, ends);
            if (!ends || (at < line.size() && line[at] != ','))
                throw FileError(table.file, number, "the quotes around the column name " + shown(name) + " do not fit");
        } else {
            const std::size_t end = std::min(line.find(',', at), line.size());
            name = trimmed(line.substr(at, end - at));
            at = end;
            if (name.find(';') != std::string::npos)
                throw FileError(table.file, number, "columns are parted by ';'" + std::string(kDecimalComma));
            if (name.empty() || isNumber(name) || name.find('"') != std::string::npos)
                throw FileError(table.file, number, shown(name) + " is no column name");
        }
        if (table.find(name) >= 0)
            throw FileError(table.file, number, "column " + shown(name) + " is there twice");
        table.names.push_back(std::move(name));
    }
    table.columns.resize(table.names.size());
}

// Quotes that are open at the end of a line: the name goes on in the next.
bool hasOpenQuotes(const std::string& line)
{
    return std::count(line.begin(), line.end(), '"') % 2 != 0;
}

void readRow(const std::string& line, long number, Table& table)
{
    const std::vector<std::string> row = fields(line);
    if (row.size() != table.names.size())
        throw FileError(table.file, number,
                        std::to_string(row.size()) + (row.size() == 1 ? " field" : " fields") + ", the header names " +
                            std::to_string(table.names.size()) + " columns" +
                            (row.size() > table.names.size() || line.find(';') != std::string::npos ? kDecimalComma : ""));
    for (std::size_t k = 0; k < row.size(); ++k) {
        double value = 0.0;
        if (!fromText(row[k], value))
            throw FileError(table.file, number,
                            (row[k].empty() ? "nothing" : shown(row[k])) + " in column '" + table.names[k] +
                                "' is no number" + (row[k].find_first_of(";\"") != std::string::npos ? kDecimalComma : ""));
        table.columns[k].push_back(value);
    }
    table.lines.push_back(number);
}

} // namespace

int Table::find(const std::string& name) const
{
    const auto at = std::find(names.begin(), names.end(), name);
    return at == names.end() ? -1 : static_cast<int>(at - names.begin());
}

std::vector<std::string> Table::variables() const
{
    std::vector<std::string> v;
    std::copy_if(names.begin(), names.end(), std::back_inserter(v), isName);
    return v;
}

const std::vector<double>& Table::column(const std::string& name) const
{
    const int k = find(name);
    if (k < 0)
        throw FileError(file, "there is no column '" + name + "'");
    return columns[static_cast<std::size_t>(k)];
}

Table readCsv(std::istream& in, const std::string& file)
{
    Table table;
    table.file = file;
    std::string line;
    for (long number = 1; nextLine(in, line); ++number) {
        if (number == 1 && line.rfind("\xef\xbb\xbf", 0) == 0) // byte order mark
            line.erase(0, 3);
        if (trimmed(line).empty())
            continue;
        if (table.names.empty()) {
            const long first = number;
            for (std::string more; hasOpenQuotes(line) && line.size() < kLongestHeader && nextLine(in, more); ++number)
                line += '\n' + more;
            readHeader(line, first, table);
        } else {
            readRow(line, number, table);
        }
    }
    if (in.bad())
        throw FileError(file, "cannot be read");
    if (table.names.empty())
        throw FileError(file, "is empty: the first line names the columns");
    return table;
}

Table readCsv(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in || in.peek() == std::ifstream::traits_type::eof()) {
        in.clear();
        if (!in.is_open() || !in.seekg(0))
            throw FileError(file, "cannot be opened");
    }
    return readCsv(in, file);
}

std::string toText(double value)
{
    if (std::isnan(value)) // whose sign says nothing
        return "nan";
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return std::string(text.data(), end);
}

bool fromText(const std::string& text, double& value)
{
    const char* first = text.data();
    const char* const last = first + text.size();
    if (first != last && *first == '+' && text.size() > 1 && text[1] != '-')
        ++first;
    const auto [end, error] = std::from_chars(first, last, value);
    if (error == std::errc::result_out_of_range && end == last) {
        // Too large or too small for a double: what rounding gives. from_chars leaves the value alone.
        const std::size_t e = text.find_first_of("eE");
        const bool tiny = e != std::string::npos ? text.find('-', e) != std::string::npos
                                                 : text.find_first_of("123456789") > text.find('.');
        value = std::copysign(tiny ? 0.0 : std::numeric_limits<double>::infinity(), *first == '-' ? -1.0 : 1.0);
        return true;
    }
    return error == std::errc() && end == last;
}

void CsvWriter::add(const std::string& name, const std::vector<double>& values)
{
    columns_.push_back({name, values.data(), 1, values.size()});
}

void CsvWriter::add(const std::string& name, const std::vector<std::complex<double>>& values)
{
    // A complex number is laid out as the array (re, im).
    const double* parts = reinterpret_cast<const double*>(values.data());
    columns_.push_back({name + ".re", parts, 2, values.size()});
    columns_.push_back({name + ".im", parts + 1, 2, values.size()});
}

void CsvWriter::write(std::ostream& out) const
{
    std::string line;
    for (const Column& c : columns_) {
        std::string name = c.name;
        const bool quoted = name.empty() || name.find_first_of(",;\"\r\n") != std::string::npos || name != trimmed(name) ||
                            isNumber(name);
        for (std::size_t at = name.find('"'); at != std::string::npos; at = name.find('"', at + 2))
            name.insert(at, 1, '"');
        line += (line.empty() ? "" : ",") + (quoted ? '"' + name + '"' : name);
    }
    out << line << '\n';
    const std::size_t rows = columns_.empty() ? 0 : columns_.front().size;
    for (std::size_t i = 0; i < rows; ++i) {
        line.clear();
        for (const Column& c : columns_) {
            if (!line.empty())
                line += ',';
            line += toText(c.first[i * c.stride]);
        }
        line += '\n';
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
}

} // namespace examples
