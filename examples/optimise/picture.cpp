// SPDX-License-Identifier: LicenseRef-qxkernel
#include "picture.hpp"

#include "support/colourmap.hpp"
#include "support/contour.hpp"
#include "support/options.hpp"
#include "support/picture.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <ostream>

namespace examples {

namespace {

constexpr double kSize = 640.0, kMargin = 60.0, kHead = 50.0;

struct Span
{
    double low = std::numeric_limits<double>::infinity(), high = -low;
    void add(double v)
    {
        if (std::isfinite(v)) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    }
    void widen(double share)
    {
        const double room = std::max(share * (high - low), 1e-3 * (1.0 + std::fabs(high)));
        low -= room;
        high += room;
    }
};

std::string escaped(const std::string& text)
{
    std::string s;
    for (const char c : text)
        s += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return s.size() > 90 ? s.substr(0, 90) + "..." : s;
}

/// A square of paper with axes: where numbers lie on it.
class Paper
{
public:
    Paper(std::ostream& out, Span x, Span y, const std::string& title, const std::string& xName, const std::string& yName)
        : out_(out), x_(x), y_(y)
    {
        out_ << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kSize + 2 * kMargin << ' '
             << kSize + kHead + 2 * kMargin << "\" font-family=\"sans-serif\" font-size=\"14\">\n"
             << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n<text x=\"" << kMargin << "\" y=\"40\" font-size=\"18\">"
             << escaped(title) << "</text>\n<clipPath id=\"in\"><rect x=\"" << kMargin << "\" y=\"" << kHead + kMargin / 2
             << "\" width=\"" << kSize << "\" height=\"" << kSize << "\"/></clipPath>\n";
        xName_ = xName;
        yName_ = yName;
    }

    double px(double x) const { return kMargin + kSize * (x - x_.low) / (x_.high - x_.low); }
    double py(double y) const { return kHead + kMargin / 2 + kSize * (y_.high - y) / (y_.high - y_.low); }

    void lines(const std::vector<Line>& lines, const std::string& style, bool closed)
    {
        if (lines.empty())
            return;
        out_ << "<path clip-path=\"url(#in)\" " << style << " d=\"";
        char text[48];
        for (const Line& line : lines) {
            for (std::size_t k = 0; k < line.size(); ++k) {
                std::snprintf(text, sizeof text, "%c%.1f %.1f", k == 0 ? 'M' : 'L', px(line[k][0]), py(line[k][1]));
                out_ << text;
            }
            if (closed)
                out_ << 'z';
        }
        out_ << "\"/>\n";
    }

    void dot(double x, double y, double radius, const std::string& style)
    {
        char text[96];
        std::snprintf(text, sizeof text, "<circle clip-path=\"url(#in)\" cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" ", px(x), py(y),
                      radius);
        out_ << text << style << "/>\n";
    }

    void finish(const std::string& note)
    {
        char text[160];
        for (const double v : roundNumbers(x_.low, x_.high, 7)) {
            std::snprintf(text, sizeof text, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%g</text>\n", px(v),
                          py(y_.low) + 18, v);
            out_ << text;
        }
        for (const double v : roundNumbers(y_.low, y_.high, 7)) {
            std::snprintf(text, sizeof text, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\">%g</text>\n", px(x_.low) - 6,
                          py(v) + 5, v);
            out_ << text;
        }
        out_ << "<rect x=\"" << kMargin << "\" y=\"" << kHead + kMargin / 2 << "\" width=\"" << kSize << "\" height=\"" << kSize
             << "\" fill=\"none\" stroke=\"black\"/>\n<text x=\"" << kMargin + kSize / 2 << "\" y=\""
             << kHead + kSize + kMargin / 2 + 38 << "\" text-anchor=\"middle\">" << escaped(xName_)
             << "</text>\n<text x=\"16\" y=\"" << kHead + kMargin / 2 + kSize / 2 << "\">" << escaped(yName_)
             << "</text>\n<text x=\"" << kMargin << "\" y=\"" << kHead + kSize + kMargin / 2 + 66 << "\" fill=\"#555\">"
             << escaped(note) << "</text>\n</svg>\n";
    }

private:
    std::ostream& out_;
    Span x_, y_;
    std::string xName_, yName_;
};

/// Levels that are dense near the best value: quadratic steps from it to the largest.
std::vector<double> levels(const std::vector<double>& field, double best, bool maximise, int count)
{
    Span range;
    for (const double v : field)
        range.add(v);
    const double far = maximise ? range.low : range.high;
    std::vector<double> result;
    for (int k = 1; k <= count; ++k) {
        const double t = static_cast<double>(k) / (count + 1);
        result.push_back(best + t * t * t * (far - best));
    }
    return result;
}

} // namespace

void drawLandscape(std::ostream& out, const Model& model, const Solution& s)
{
    if (model.n() != 2)
        throw UsageError("a picture needs two variables");
    const auto& variables = model.problem().variables;
    Span x, y;
    for (std::size_t k = 0; k < s.path.size() && k < 2000; ++k) {
        x.add(s.path[k][0]);
        y.add(s.path[k][1]);
    }
    x.add(variables[0].start), y.add(variables[1].start);
    x.add(s.x[0]), y.add(s.x[1]);
    // All of a bounded box, if it is not much larger than what was seen.
    const auto take = [](Span& span, const Variable& v) {
        const double seen = std::max(span.high - span.low, 0.1);
        if (std::isfinite(v.low) && std::isfinite(v.high) && v.high - v.low < 6 * seen)
            span = {v.low, v.high};
        span.widen(0.25);
    };
    take(x, variables[0]);
    take(y, variables[1]);

    constexpr int n = 161;
    Mesh mesh;
    std::vector<std::vector<double>> fields(model.rows().size());
    std::vector<double> F;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const double at[] = {x.low + (x.high - x.low) * i / (n - 1), y.low + (y.high - y.low) * j / (n - 1)};
            mesh.points.push_back({at[0], at[1]});
            const bool defined = model.total(at, F);
            for (std::size_t r = 0; r < fields.size(); ++r)
                fields[r].push_back(defined ? F[r] : nan);
            if (i > 0 && j > 0) {
                const int p = j * n + i;
                mesh.triangles.push_back({p - n - 1, p - n, p});
                mesh.triangles.push_back({p - n - 1, p, p - 1});
            }
        }

    Paper paper(out, x, y, (model.problem().maximise ? "maximise " : "minimise ") + model.problem().objective,
                variables[0].name, variables[1].name);
    const Contours objective(mesh, fields[0]);
    int k = 0;
    constexpr int count = 16;
    for (const double level : levels(fields[0], s.F[0], model.problem().maximise, count))
        paper.lines(objective.isoLines(level),
                    "fill=\"none\" stroke-width=\"1.2\" stroke=\"" +
                        colour(ColourMap::Sequential, 0.15 + 0.7 * (k++) / count) + "\"",
                    false);
    for (std::size_t r = 1; r < fields.size(); ++r) {
        const Row& row = model.rows()[r];
        std::vector<double> negative = fields[r];
        for (double& v : negative)
            v = -v;
        const std::string grey = "fill=\"#666\" fill-opacity=\"0.22\" fill-rule=\"evenodd\"";
        const std::string edge = "fill=\"none\" stroke=\"#222\" stroke-width=\"2\"";
        const Contours above(mesh, fields[r]), below(mesh, negative);
        if (row.low != row.high && std::isfinite(row.high))
            paper.lines(above.regionAbove(row.high), grey, true);
        if (row.low != row.high && std::isfinite(row.low))
            paper.lines(below.regionAbove(-row.low), grey, true);
        for (const double bound : {row.low, row.high})
            if (std::isfinite(bound))
                paper.lines(above.isoLines(bound), edge, false);
    }
    std::vector<Line> box(1);
    for (const int corner : {0, 1, 3, 2}) {
        const double bx = corner & 1 ? variables[0].high : variables[0].low, by = corner & 2 ? variables[1].high : variables[1].low;
        box[0].push_back({std::clamp(bx, x.low - 1, x.high + 1), std::clamp(by, y.low - 1, y.high + 1)});
    }
    paper.lines(box, "fill=\"none\" stroke=\"#222\" stroke-dasharray=\"6 4\"", true);
    Line path;
    for (const auto& p : s.path)
        path.push_back({p[0], p[1]});
    if (!path.empty())
        paper.lines({path}, "fill=\"none\" stroke=\"#0057b8\" stroke-width=\"1.5\"", false);
    for (const Point& p : path)
        paper.dot(p[0], p[1], 3, "fill=\"#0057b8\"");
    paper.dot(s.x[0], s.x[1], 6, "fill=\"#d40000\" stroke=\"white\"");
    char note[160];
    std::snprintf(note, sizeof note, "end at %s = %.6g, %s = %.6g; grey: forbidden", variables[0].name.c_str(), s.x[0],
                  variables[1].name.c_str(), s.x[1]);
    paper.finish(note);
}

void drawFit(std::ostream& out, const Fit& fit, const FitResult& result, const Table& data, const std::string& over)
{
    const std::vector<double>& t = data.column(over);
    const std::vector<double>& y = data.column(fit.observed);
    Span x, v;
    for (std::size_t i = 0; i < t.size(); ++i) {
        x.add(t[i]);
        v.add(y[i]);
        v.add(result.fitted[i]);
    }
    x.widen(0.05);
    v.widen(0.08);
    Paper paper(out, x, v, fit.observed + " near " + fit.model, over, fit.observed);
    std::vector<Line> pieces(1); // parted where the model has no value
    for (const auto& [at, value] : fittedCurve(fit, result, data, over)) {
        if (std::isfinite(value))
            pieces.back().push_back({at, value});
        else if (!pieces.back().empty())
            pieces.emplace_back();
    }
    paper.lines(pieces, "fill=\"none\" stroke=\"#d40000\" stroke-width=\"2\"", false);
    for (std::size_t i = 0; i < t.size(); ++i)
        paper.dot(t[i], y[i], 3, "fill=\"#0057b8\"");
    char note[120];
    std::snprintf(note, sizeof note, "R^2 = %.6f, standard deviation %.4g", result.rSquared, result.deviation);
    paper.finish(note);
}

} // namespace examples
