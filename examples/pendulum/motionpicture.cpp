// SPDX-License-Identifier: LicenseRef-qxkernel
#include "motionpicture.hpp"

#include "support/picture.hpp"

#include <algorithm>
#include <ostream>
#include <sstream>

namespace examples {
namespace {

constexpr double kWidth = 380.0;
constexpr double kHeight = 300.0;
constexpr int kGhosts = 24;

/// Maps a rectangle of the plane to one of the picture, y upwards.
class Frame2d
{
public:
    Frame2d(double left, double top, PlanePoint low, PlanePoint high, bool sameScale)
        : left_(left), top_(top), low_(low), high_(high), sx_(kWidth / (high.x - low.x)), sy_(kHeight / (high.y - low.y))
    {
        if (sameScale)
            sx_ = sy_ = std::min(sx_, sy_);
    }
    double x(double v) const { return left_ + kWidth / 2 + (v - (low_.x + high_.x) / 2) * sx_; }
    double y(double v) const { return top_ + kHeight / 2 - (v - (low_.y + high_.y) / 2) * sy_; }
    std::string operator()(PlanePoint p) const
    {
        std::ostringstream text;
        text.precision(5);
        text << x(p.x) << ',' << y(p.y) << ' ';
        return text.str();
    }

private:
    double left_, top_;
    PlanePoint low_, high_;
    double sx_, sy_;
};

void line(std::ostream& out, const std::string& points, const char* colour, double width, double opacity)
{
    out << "<polyline fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"" << width << "\" stroke-opacity=\""
        << opacity << "\" stroke-linejoin=\"round\" points=\"" << points << "\"/>\n";
}

void label(std::ostream& out, double x, double y, const std::string& text, const char* anchor = "start")
{
    out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">" << text << "</text>\n";
}

void grow(PlanePoint& low, PlanePoint& high, PlanePoint p)
{
    low = {std::min(low.x, p.x), std::min(low.y, p.y)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y)};
}

void drawMechanism(std::ostream& out, const std::vector<Frame>& frames)
{
    PlanePoint low = frames[0].chain[0];
    PlanePoint high = low;
    for (const Frame& frame : frames)
        for (const PlanePoint& p : frame.chain)
            grow(low, high, p);
    const double margin = 0.08 * std::max(high.x - low.x, high.y - low.y);
    const Frame2d map(20, 50, {low.x - margin, low.y - margin}, {high.x + margin, high.y + margin}, true);

    for (std::size_t joint = 1; joint < frames[0].chain.size(); ++joint) {
        std::string path;
        for (const Frame& frame : frames)
            path += map(frame.chain[joint]);
        line(out, path, "#d95f02", 1.5, 0.8);
    }
    for (int ghost = 0; ghost < kGhosts; ++ghost) {
        const std::size_t at = (frames.size() - 1) * static_cast<std::size_t>(ghost) / (kGhosts - 1);
        const double age = static_cast<double>(ghost) / (kGhosts - 1);
        std::string chain;
        for (const PlanePoint& p : frames[at].chain)
            chain += map(p);
        line(out, chain, "#1f4e79", 2.0, 0.1 + 0.9 * age * age);
    }
    for (const PlanePoint& p : frames.back().chain)
        out << "<circle cx=\"" << map.x(p.x) << "\" cy=\"" << map.y(p.y) << "\" r=\"4\" fill=\"#1f4e79\"/>\n";
}

void drawCurve(std::ostream& out, const std::vector<Frame>& frames, const std::string& quantity)
{
    PlanePoint low{frames[0].time, frames[0].quantity};
    PlanePoint high = low;
    for (const Frame& frame : frames)
        grow(low, high, {frame.time, frame.quantity});
    const double margin = 0.05 * (high.y - low.y);
    const Frame2d map(460, 50, {low.x, low.y - margin}, {high.x, high.y + margin}, false);
    for (const double v : roundNumbers(low.y, high.y, 6)) {
        line(out, map({low.x, v}) + map({high.x, v}), "#999999", 0.5, 0.7);
        std::ostringstream number;
        number << v;
        label(out, 452, map.y(v) + 4, number.str(), "end");
    }
    for (const double v : roundNumbers(low.x, high.x, 6)) {
        line(out, map({v, low.y - margin}) + map({v, high.y + margin}), "#999999", 0.5, 0.7);
        std::ostringstream number;
        number << v;
        label(out, map.x(v), 368, number.str(), "middle");
    }
    std::string curve;
    for (const Frame& frame : frames)
        curve += map({frame.time, frame.quantity});
    line(out, curve, "#1f4e79", 1.8, 1.0);
    label(out, 460, 42, quantity);
    label(out, 840, 385, "t / s", "end");
}

} // namespace

void writeMotion(std::ostream& out, const std::vector<Frame>& frames, const std::string& title,
                 const std::string& quantity)
{
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"860\" height=\"400\" viewBox=\"0 0 860 400\""
           " font-family=\"sans-serif\" font-size=\"12\" fill=\"#333333\">\n"
           "<rect width=\"860\" height=\"400\" fill=\"white\"/>\n";
    label(out, 20, 24, title);
    if (frames.size() > 1) {
        drawMechanism(out, frames);
        drawCurve(out, frames, quantity);
    }
    out << "</svg>\n";
}

} // namespace examples
