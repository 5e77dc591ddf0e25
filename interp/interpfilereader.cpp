// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpfilereader.hpp"

#include "interp/axissearch_detail.hpp"
#include "interp/textlines_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <fstream>
#include <limits>

using namespace qxinterp_detail;

namespace {

using Points = std::vector<double>;

/// Numbers as they stand in a file of columns, and the line of each row.
struct Rows
{
    std::vector<Points> columns;
    std::vector<unsigned long> lines;
    std::vector<std::string> names;
    std::size_t size() const { return lines.size(); }
};

bool isWord(const TextLines& lines, const char* word)
{
    if (!lines.isComment() || lines.commentWords().empty())
        return false;
    const std::string& first = lines.commentWords().front();
    return std::equal(first.begin(), first.end(), word, word + std::char_traits<char>::length(word),
                      [](char a, char b) { return (a >= 'A' && a <= 'Z' ? char(a + 32) : a) == b; });
}

std::string withoutQuotes(std::string_view text)
{
    if (text.size() > 1 && text.front() == text.back() && (text.front() == '"' || text.front() == '\''))
        text = text.substr(1, text.size() - 2);
    return std::string(text);
}

// ---- columns

/// lines stands on the first line that is no comment, if there is one.
Rows readRows(TextLines& lines, bool found)
{
    Rows rows;
    if (found && !lines.beginsWithNumber()) {
        for (const std::string_view field : lines.fields())
            rows.names.push_back(withoutQuotes(field));
        found = lines.next();
    }
    for (; found; found = lines.next()) {
        if (lines.isComment())
            continue;
        const std::size_t n = lines.fields().size();
        if (rows.columns.empty()) {
            if (!rows.names.empty() && rows.names.size() != n)
                lines.refuse(0, std::to_string(n) + " numbers under " + std::to_string(rows.names.size()) + " names");
            rows.columns.resize(n);
        }
        for (std::size_t k = 0; k < std::min(n, rows.columns.size()); ++k)
            rows.columns[k].push_back(lines.numberAt(k));
        if (n != rows.columns.size())
            lines.refuse(std::min(n, rows.columns.size()) + 1, std::to_string(n) + " numbers in a table of " +
                                                                   std::to_string(rows.columns.size()) + " columns");
        rows.lines.push_back(lines.number());
    }
    if (rows.columns.empty())
        lines.refuse(0, "the file has no numbers");
    if (rows.columns.size() < 2)
        lines.refuse(rows.lines.front(), 0, "one column is no table: coordinates and values are needed");
    rows.names.resize(rows.columns.size());
    return rows;
}

InterpTableData namedLike(const Rows& rows, std::size_t d)
{
    InterpTableData data;
    data.axisNames.assign(rows.names.begin(), rows.names.begin() + std::ptrdiff_t(d));
    data.names.assign(rows.names.begin() + std::ptrdiff_t(d), rows.names.end());
    return data;
}

InterpTableData curves(const TextLines& lines, Rows& rows)
{
    const Points& x = rows.columns.front();
    for (std::size_t i = 1; i < x.size(); ++i)
        if (!(x[i - 1] < x[i]))
            lines.refuse(rows.lines[i], 1, qxutil::toString(x[i]) + " does not ascend from " + qxutil::toString(x[i - 1]) +
                                               " in line " + std::to_string(rows.lines[i - 1]));
    InterpTableData data = namedLike(rows, 1);
    data.axes = boost::make_shared<Interpolator::Axes>(1, x);
    for (std::size_t k = 1; k < rows.columns.size(); ++k)
        data.values.push_back(boost::make_shared<const Points>(std::move(rows.columns[k])));
    return data;
}

/// Rows whose first columns are coordinates, put in the order of a grid.
class GridOfRows
{
public:
    GridOfRows(const Rows& rows, std::size_t d) : rows_(rows), d_(d)
    {
        for (std::size_t k = 0; k < d; ++k) {
            Points points = rows.columns[k];
            std::sort(points.begin(), points.end());
            points.erase(std::unique(points.begin(), points.end()), points.end());
            axes_.push_back(std::move(points));
        }
        places_.assign(rows.size(), none);
        if (!hasRightSize())
            return;
        for (std::size_t row = 0; row < rows.size() && repeated_ == none; ++row) {
            std::size_t& place = places_[placeOf(row)];
            if (place != none)
                repeated_ = row;
            else
                place = row;
        }
    }

    /// Whether every point of the grid has one row, and every axis two points at least.
    bool isFull() const
    {
        return hasRightSize() && repeated_ == none &&
               std::all_of(axes_.begin(), axes_.end(), [](const Points& p) { return p.size() > 1; });
    }

    InterpTableData data(const TextLines& lines) const
    {
        if (repeated_ != none)
            lines.refuse(rows_.lines[repeated_], 0,
                         "the point of line " + std::to_string(rows_.lines[places_[placeOf(repeated_)]]) + " again");
        if (!hasRightSize()) {
            std::string lengths;
            for (const Points& p : axes_)
                lengths += (lengths.empty() ? "" : " x ") + std::to_string(p.size());
            lines.refuse(rows_.lines.back(), 0, std::to_string(rows_.size()) + " lines do not fill a grid of " + lengths +
                                                    " points");
        }
        InterpTableData result = namedLike(rows_, d_);
        result.axes = boost::make_shared<const Interpolator::Axes>(axes_);
        for (std::size_t k = d_; k < rows_.columns.size(); ++k) {
            Points values(rows_.size());
            for (std::size_t i = 0; i < values.size(); ++i)
                values[i] = rows_.columns[k][places_[i]];
            result.values.push_back(boost::make_shared<const Points>(std::move(values)));
        }
        return result;
    }

private:
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    bool hasRightSize() const
    {
        double product = 1.0;
        for (const Points& p : axes_)
            product *= static_cast<double>(p.size());
        return product == static_cast<double>(rows_.size());
    }

    std::size_t placeOf(std::size_t row) const
    {
        std::size_t place = 0, stride = 1;
        for (std::size_t k = 0; k < d_; ++k) {
            const Points& p = axes_[k];
            place += stride * std::size_t(std::lower_bound(p.begin(), p.end(), rows_.columns[k][row]) - p.begin());
            stride *= p.size();
        }
        return place;
    }

    const Rows& rows_;
    std::size_t d_;
    Interpolator::Axes axes_;
    std::vector<std::size_t> places_; ///< the row of each point of the grid
    std::size_t repeated_ = none;     ///< a row whose point another one has
};

InterpTableData fromRows(const TextLines& lines, Rows& rows, int nAxes)
{
    if (nAxes != 0 && static_cast<std::size_t>(nAxes) >= rows.columns.size())
        lines.refuse(rows.lines.front(), 0, std::to_string(rows.columns.size()) + " columns are too few for " +
                                                std::to_string(nAxes) + " coordinates and a value");
    if (nAxes > 1)
        return GridOfRows(rows, static_cast<std::size_t>(nAxes)).data(lines);
    if (nAxes == 0 && !isAscending(rows.columns.front()))
        for (std::size_t d = 2; d < rows.columns.size(); ++d)
            if (const GridOfRows grid(rows, d); grid.isFull())
                return grid.data(lines);
    return curves(lines, rows);
}

// ---- grid files

/// lines stands on the line with the word grid.
InterpTableData readGrid(TextLines& lines, int nAxes)
{
    Interpolator::Axes axes;
    bool found = lines.next();
    for (; found && !isWord(lines, "data"); found = lines.next()) {
        if (lines.isComment())
            continue;
        Points points;
        for (std::size_t k = 0; k < lines.fields().size(); ++k) {
            points.push_back(lines.numberAt(k));
            if (k > 0 && !(points[k - 1] < points[k]))
                lines.refuse(k + 1, qxutil::toString(points[k]) + " does not ascend from " + qxutil::toString(points[k - 1]));
        }
        axes.push_back(std::move(points));
    }
    if (!found || axes.empty())
        lines.refuse(0, found ? "there is no axis before the values" : "the file ends before its values");
    if (nAxes != 0 && axes.size() != static_cast<std::size_t>(nAxes))
        lines.refuse(0, std::to_string(axes.size()) + " axes, wanted are " + std::to_string(nAxes));
    double size = 1.0;
    for (const Points& p : axes)
        size *= static_cast<double>(p.size());

    InterpTableData data;
    while (found) { // on a line with the word data
        const std::vector<std::string> words = lines.commentWords();
        Points values;
        unsigned long last = lines.number();
        while ((found = lines.next()) && !isWord(lines, "data")) {
            if (lines.isComment())
                continue;
            last = lines.number();
            for (std::size_t k = 0; k < lines.fields().size(); ++k) {
                values.push_back(lines.numberAt(k));
                if (static_cast<double>(values.size()) > size)
                    lines.refuse(k + 1, "more values than the grid has points, " + qxutil::toString(size));
            }
        }
        if (static_cast<double>(values.size()) != size)
            lines.refuse(last, 0, std::to_string(values.size()) + " values for the " + qxutil::toString(size) +
                                      " points of the grid");
        data.values.push_back(boost::make_shared<const Points>(std::move(values)));
        data.names.push_back(words.size() > 1 ? withoutQuotes(words[1]) : std::string());
    }
    data.axisNames.resize(axes.size());
    data.axes = boost::make_shared<const Interpolator::Axes>(std::move(axes));
    return data;
}

} // namespace

InterpTableData InterpFileReader::read(std::istream& stream, const std::string& name) const
{
    TextLines lines(stream, name);
    bool found = lines.next();
    while (found && lines.isComment()) {
        if (isWord(lines, "grid"))
            return readGrid(lines, nAxes_);
        found = lines.next();
    }
    Rows rows = readRows(lines, found);
    return fromRows(lines, rows, nAxes_);
}

InterpTableData InterpFileReader::read(const std::string& path) const
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        QX_RAISE("interpfilereader", "Cannot_open_table_file", "File", path);
    return read(stream, path);
}
