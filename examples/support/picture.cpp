// SPDX-License-Identifier: LicenseRef-qxkernel
#include "picture.hpp"

#include "colourmap.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <ostream>

namespace examples {
namespace {

constexpr int kBands = 64;
constexpr double kWidth = 1000.0;       // of the picture, in its own units
constexpr double kMargin = 36.0;
constexpr double kHead = 64.0;          // title and subtitle
constexpr double kBarWidth = 20.0;
constexpr double kBarSpace = 150.0;     // bar with its numbers
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Range
{
    double low = kInfinity;
    double high = -kInfinity;

    void add(double v)
    {
        if (std::isfinite(v)) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    }
    double length() const { return high - low; }
};

std::string number(double value, const char* format = "%.1f")
{
    char text[40];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string tickText(double value, double step)
{
    const double size = std::max(std::abs(value), step);
    if (size >= 1e5 || size < 1e-3)
        return value == 0.0 ? "0" : number(value, "%.3g");
    const int digits = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    char text[40];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string escaped(const std::string& text)
{
    std::string s;
    for (const char c : text)
        switch (c) {
        case '&': s += "&amp;"; break;
        case '<': s += "&lt;"; break;
        case '>': s += "&gt;"; break;
        case '"': s += "&quot;"; break;
        default: s += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    return s;
}

// As much of a text as fits, cut between characters of UTF-8.
std::string shortened(const std::string& text, std::size_t bytes)
{
    if (text.size() <= bytes)
        return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0u) == 0x80u)
        --bytes;
    return text.substr(0, bytes) + " ...";
}

// Where the mesh lies in the picture: x to the right, y up, one scale for both.
class Frame
{
public:
    explicit Frame(const Mesh& mesh)
    {
        for (const Point& p : mesh.points) {
            x_.add(p[0]);
            y_.add(p[1]);
        }
        const double room = kWidth - 2.0 * kMargin - kBarSpace;
        scale_ = std::min(room / std::max(x_.length(), 1e-300), 1.2 * room / std::max(y_.length(), 1e-300));
        if (!std::isfinite(scale_))
            scale_ = 1.0;
        left_ = kMargin + 0.5 * (room - scale_ * x_.length());
    }

    double height() const { return scale_ * y_.length(); }
    double total() const { return kHead + std::max(height(), 240.0) + 2.0 * kMargin; }
    Point at(const Point& p) const
    {
        return {left_ + scale_ * (p[0] - x_.low), kHead + kMargin + scale_ * (y_.high - p[1])};
    }
    const Range& x() const { return x_; }
    const Range& y() const { return y_; }
    double scale() const { return scale_; }

private:
    Range x_;
    Range y_;
    double scale_ = 1.0;
    double left_ = 0.0;
};

// A minus sign parts numbers as well as a blank does.
void appendNumber(std::string& path, long value)
{
    if (!path.empty() && value >= 0)
        path += ' ';
    path += std::to_string(value);
}

// A path in steps of a tenth of a unit: absolute start, then whole relative steps, which keeps the file small.
void appendPath(std::string& path, const Line& line, const Frame& frame, bool closed)
{
    const auto tenths = [&](const Point& p) {
        const Point q = frame.at(p);
        return std::array<long, 2>{std::lround(10.0 * q[0]), std::lround(10.0 * q[1])};
    };
    std::array<long, 2> last = tenths(line.front());
    std::string steps;
    for (std::size_t i = 1; i < line.size(); ++i) {
        const auto next = tenths(line[i]);
        const long dx = next[0] - last[0];
        const long dy = next[1] - last[1];
        if (dx == 0 && dy == 0)
            continue;
        appendNumber(steps, dx);
        appendNumber(steps, dy);
        last = next;
    }
    if (steps.empty())
        return;
    const auto first = tenths(line.front());
    path += 'M';
    path += std::to_string(first[0]);
    appendNumber(path, first[1]);
    path += 'l';
    path += steps;
    if (closed)
        path += 'z';
}

std::string pathOf(const std::vector<Line>& lines, const Frame& frame, bool closed)
{
    std::string path;
    for (const Line& line : lines)
        appendPath(path, line, frame, closed);
    return path;
}

void writePath(std::ostream& out, const std::string& path, const std::string& style)
{
    if (!path.empty())
        out << "<path " << style << " d=\"" << path << "\"/>\n";
}

struct Scale
{
    Range range;
    ColourMap map = ColourMap::Sequential;

    explicit Scale(const std::vector<double>& field)
    {
        for (const double v : field)
            range.add(v);
        if (range.low > range.high)
            range = {0.0, 1.0};
        const double less = std::min(-range.low, range.high);
        if (less > 0.15 * std::max(-range.low, range.high)) {
            map = ColourMap::Diverging;
            const double most = std::max(-range.low, range.high);
            range = {-most, most};
        }
        if (range.length() <= 1e-12 * std::max(std::abs(range.low), std::abs(range.high))) {
            const double half = range.low == 0.0 ? 0.5 : 0.5 * std::abs(range.low); // a constant field
            range = {range.low - half, range.high + half};
        }
    }
    double level(int band) const { return range.low + range.length() * band / kBands; }
    std::string colourOf(int band) const { return colour(map, (band + 0.5) / kBands); }
};

void writeBar(std::ostream& out, const Scale& scale, const std::vector<double>& ticks, const Frame& frame,
              const std::string& unit)
{
    const double x = kWidth - kMargin - kBarSpace + 46.0;
    const double top = kHead + kMargin;
    const double height = std::max(frame.height(), 240.0);
    const auto y = [&](double value) { return top + height * (scale.range.high - value) / scale.range.length(); };
    for (int band = 0; band < kBands; ++band) // each from the head down to its level, the later ones over the earlier
        out << "<rect x=\"" << number(x) << "\" width=\"" << number(kBarWidth) << "\" y=\"" << number(top)
            << "\" height=\"" << number(y(scale.level(band)) - top, "%.2f") << "\" fill=\"" << scale.colourOf(band)
            << "\"/>\n";
    out << "<rect x=\"" << number(x) << "\" y=\"" << number(top) << "\" width=\"" << number(kBarWidth)
        << "\" height=\"" << number(height) << "\" fill=\"none\" stroke=\"#333\" stroke-width=\"0.8\"/>\n";
    const double step = ticks.size() > 1 ? ticks[1] - ticks[0] : scale.range.length();
    for (const double t : ticks)
        out << "<path d=\"M" << number(x + kBarWidth) << " " << number(y(t)) << "h5\" stroke=\"#333\"/><text x=\""
            << number(x + kBarWidth + 10.0) << "\" y=\"" << number(y(t) + 5.0) << "\">" << tickText(t, step)
            << "</text>\n";
    if (!unit.empty())
        out << "<text x=\"" << number(x) << "\" y=\"" << number(top - 12.0) << "\">" << escaped(shortened(unit, 16)) << "</text>\n";
}

void writeArrows(std::ostream& out, const Mesh& mesh, const std::vector<Point>& arrows, const Frame& frame)
{
    const double cell = 32.0 / frame.scale();
    double longest = 0.0;
    std::map<std::array<long, 2>, std::size_t> chosen; // the point nearest to the middle of each cell
    const auto fromMiddle = [&](const Point& p) {
        const double u = p[0] / cell;
        const double v = p[1] / cell;
        return std::hypot(u - std::floor(u) - 0.5, v - std::floor(v) - 0.5);
    };
    std::vector<char> used(mesh.points.size(), 0);
    for (const auto& t : mesh.triangles)
        for (const int c : t)
            used[static_cast<std::size_t>(c)] = 1;
    for (std::size_t i = 0; i < mesh.points.size(); ++i) {
        const Point& p = mesh.points[i];
        const double size = std::hypot(arrows[i][0], arrows[i][1]);
        if (!used[i] || !std::isfinite(size))
            continue;
        longest = std::max(longest, size);
        if (fromMiddle(p) > 0.3) // arrows of neighbouring cells stay apart
            continue;
        const std::array<long, 2> key{std::lround(std::floor(p[0] / cell)), std::lround(std::floor(p[1] / cell))};
        const auto [at, isNew] = chosen.try_emplace(key, i);
        if (!isNew && fromMiddle(p) < fromMiddle(mesh.points[at->second]))
            at->second = i;
    }
    if (longest == 0.0)
        return;
    std::string path;
    for (const auto& [key, i] : chosen) {
        const double size = std::hypot(arrows[i][0], arrows[i][1]);
        const double length = 30.0 * std::sqrt(size / longest); // the root keeps weak fields visible
        if (length < 4.0)
            continue;
        const Point p = frame.at(mesh.points[i]);
        const double ux = arrows[i][0] / size;
        const double uy = -arrows[i][1] / size;
        const double head = std::min(7.0, 0.5 * length);
        const Point tail{p[0] - 0.5 * length * ux, p[1] - 0.5 * length * uy};
        const Point tip{p[0] + 0.5 * length * ux, p[1] + 0.5 * length * uy};
        path += "M" + number(tail[0]) + " " + number(tail[1]) + "L" + number(tip[0]) + " " + number(tip[1]);
        for (const double side : {-1.0, 1.0})
            path += "M" + number(tip[0]) + " " + number(tip[1]) + "l" + number(-head * (ux + 0.45 * side * uy)) + " " +
                    number(-head * (uy - 0.45 * side * ux));
    }
    const std::string style = "fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\" ";
    writePath(out, path, style + "stroke=\"#fff\" stroke-opacity=\"0.75\" stroke-width=\"3.4\"");
    writePath(out, path, style + "stroke=\"#16202c\" stroke-width=\"1.5\"");
}

} // namespace

std::vector<double> roundNumbers(double low, double high, int about)
{
    const double rough = (high - low) / about;
    if (!(rough > 0.0) || !std::isfinite(rough))
        return {};
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    double step = 10.0 * power;
    for (const double factor : {5.0, 2.0, 1.0})
        if (factor * power >= rough * (1.0 - 1e-9))
            step = factor * power;
    std::vector<double> numbers;
    const double first = std::ceil(low / step - 1e-9);
    for (double k = first; k * step <= high + 1e-9 * step && numbers.size() < 1000; ++k)
        numbers.push_back(k == 0.0 ? 0.0 : k * step);
    return numbers;
}

void writePicture(std::ostream& out, const Mesh& mesh, const std::vector<double>& field, const PictureText& text,
                  const std::vector<Point>& arrows)
{
    const Frame frame(mesh);
    const Scale scale(field);
    const std::vector<double> ticks = roundNumbers(scale.range.low, scale.range.high, 10);
    const Contours contours(mesh, field);
    const bool everywhere = std::none_of(field.begin(), field.end(), [](double v) { return std::isnan(v); });
    const std::vector<double> flat(everywhere ? 0 : mesh.points.size(), 0.0);
    const std::string outline = pathOf(everywhere ? contours.outline() : Contours(mesh, flat).outline(), frame, true);

    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << number(kWidth, "%.0f") << " "
        << number(frame.total(), "%.0f") << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"15\" "
        << "fill=\"#222\">\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n<text x=\"" << number(kMargin)
        << "\" y=\"44\" font-size=\"24\">" << escaped(shortened(text.title, 70)) << "</text>\n";
    if (!text.subtitle.empty())
        out << "<text x=\"" << number(kMargin) << "\" y=\"70\" fill=\"#666\">" << escaped(shortened(text.subtitle, 110))
            << "</text>\n";

    out << "<g transform=\"scale(0.1)\" fill-rule=\"evenodd\">\n";
    writePath(out, outline, "fill=\"#ccc\"");
    for (int band = 0; band < kBands; ++band) {
        // Bands are painted over each other, so no seam shows between two. The lowest one includes the rounded minimum.
        const double level = band == 0 ? -std::numeric_limits<double>::max() : scale.level(band);
        writePath(out, pathOf(contours.regionAbove(level), frame, true), "fill=\"" + scale.colourOf(band) + "\"");
    }
    std::string lines;
    for (const double t : ticks)
        lines += pathOf(contours.isoLines(t), frame, false);
    writePath(out, lines,
              "fill=\"none\" stroke=\"#000\" stroke-opacity=\"0.45\" stroke-width=\"7\" stroke-linejoin=\"round\"");
    writePath(out, outline, "fill=\"none\" stroke=\"#222\" stroke-width=\"16\" stroke-linejoin=\"round\"");
    out << "</g>\n";
    if (!arrows.empty())
        writeArrows(out, mesh, arrows, frame);
    writeBar(out, scale, ticks, frame, text.unit);
    out << "</svg>\n";
}

} // namespace examples
