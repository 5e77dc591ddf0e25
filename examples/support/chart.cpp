// SPDX-License-Identifier: LicenseRef-qxkernel
#include "chart.hpp"

#include "picture.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <sstream>

namespace examples {
namespace {

constexpr double kWidth = 400.0, kHeight = 230.0; // of the axes
constexpr double kLeft = 76.0, kAbove = 40.0, kRight = 24.0, kBelow = 34.0;
constexpr double kHead = 40.0;
constexpr const char* kColours[] = {"#1f4e79", "#d95f02", "#1b9e77", "#7570b3"};

struct Range
{
    double low = std::numeric_limits<double>::infinity(), high = -low;
    void add(double v)
    {
        if (std::isfinite(v)) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    }
    /// Some room around; never empty.
    void widen(double share)
    {
        if (!(low <= high))
            low = high = 0.0;
        const double room = high > low ? share * (high - low) : std::max(1.0, std::fabs(low)) * 0.5;
        low -= room;
        high += room;
    }
};

std::string escaped(const std::string& text)
{
    std::string s;
    for (const char c : text)
        s += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return s;
}

std::string number(double v)
{
    std::ostringstream text;
    text.precision(6);
    text << v + 0.0;
    return text.str();
}

class PanelWriter
{
public:
    PanelWriter(std::ostream& out, const ChartPanel& panel, double left, double top) : out_(out), panel_(panel), left_(left), top_(top)
    {
        for (const ChartSeries& s : panel.series)
            for (std::size_t i = 0; i < s.x.size(); ++i) {
                x_.add(s.x[i]);
                y_.add(s.y[i]);
            }
        x_.widen(panel.sameScale ? 0.06 : 0.0);
        y_.widen(0.06);
        if (panel.sameScale) {
            const double unit = std::max((x_.high - x_.low) / kWidth, (y_.high - y_.low) / kHeight);
            stretch(x_, unit * kWidth);
            stretch(y_, unit * kHeight);
        }
    }

    void write()
    {
        text(left_ + kWidth / 2, top_ - 12, "middle", escaped(panel_.title), 15);
        out_ << "<rect x=\"" << left_ << "\" y=\"" << top_ << "\" width=\"" << kWidth << "\" height=\"" << kHeight
             << "\" fill=\"none\" stroke=\"#888\"/>\n";
        for (const double v : roundNumbers(x_.low, x_.high, 6)) {
            line(px(v), top_, px(v), top_ + kHeight);
            text(px(v), top_ + kHeight + 17, "middle", number(v), 12);
        }
        for (const double v : roundNumbers(y_.low, y_.high, 6)) {
            line(left_, py(v), left_ + kWidth, py(v));
            text(left_ - 6, py(v) + 4, "end", number(v), 12);
        }
        for (std::size_t k = 0; k < panel_.series.size(); ++k)
            series(panel_.series[k], kColours[k % std::size(kColours)]);
    }

private:
    static void stretch(Range& r, double length)
    {
        const double middle = 0.5 * (r.low + r.high);
        r.low = middle - 0.5 * length;
        r.high = middle + 0.5 * length;
    }
    double px(double v) const { return left_ + kWidth * (v - x_.low) / (x_.high - x_.low); }
    double py(double v) const { return top_ + kHeight * (y_.high - v) / (y_.high - y_.low); }

    void line(double x1, double y1, double x2, double y2)
    {
        out_ << "<line x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2 << "\" stroke=\"#ddd\"/>\n";
    }
    void text(double x, double y, const char* anchor, const std::string& words, int size)
    {
        out_ << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\" font-size=\"" << size << "\">" << words
             << "</text>\n";
    }

    void series(const ChartSeries& s, const char* colour)
    {
        if (s.dots) {
            for (std::size_t i = 0; i < s.x.size(); ++i)
                if (std::isfinite(s.x[i]) && std::isfinite(s.y[i]))
                    out_ << "<circle cx=\"" << px(s.x[i]) << "\" cy=\"" << py(s.y[i]) << "\" r=\"3.5\" fill=\"" << colour << "\"/>\n";
            return;
        }
        std::string points;
        const auto flush = [&] {
            if (!points.empty())
                out_ << "<polyline fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"2\" points=\"" << points << "\"/>\n";
            points.clear();
        };
        for (std::size_t i = 0; i < s.x.size(); ++i) {
            if (std::isfinite(s.x[i]) && std::isfinite(s.y[i]))
                points += number(px(s.x[i])) + "," + number(py(s.y[i])) + " ";
            else
                flush();
        }
        flush();
    }

    std::ostream& out_;
    const ChartPanel& panel_;
    double left_, top_;
    Range x_, y_;
};

} // namespace

void writeChart(std::ostream& out, const std::string& title, const std::string& xLabel,
                const std::vector<std::vector<ChartPanel>>& rows)
{
    std::size_t columns = 1;
    for (const auto& row : rows)
        columns = std::max(columns, row.size());
    const double cellWidth = kLeft + kWidth + kRight, cellHeight = kAbove + kHeight + kBelow;
    const double width = cellWidth * static_cast<double>(columns), height = kHead + cellHeight * static_cast<double>(rows.size()) + 22;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << width << ' ' << height
        << "\" font-family=\"Helvetica, Arial, sans-serif\" fill=\"#222\">\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n"
        << "<text x=\"36\" y=\"30\" font-size=\"20\" font-weight=\"bold\">" << escaped(title) << "</text>\n";
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (std::size_t c = 0; c < rows[r].size(); ++c)
            PanelWriter(out, rows[r][c], cellWidth * static_cast<double>(c) + kLeft, kHead + cellHeight * static_cast<double>(r) + kAbove)
                .write();
    for (std::size_t c = 0; c < columns; ++c)
        out << "<text x=\"" << cellWidth * static_cast<double>(c) + kLeft + kWidth / 2 << "\" y=\"" << height - 14
            << "\" text-anchor=\"middle\" font-size=\"14\">" << escaped(xLabel) << "</text>\n";
    out << "</svg>\n";
}

} // namespace examples
