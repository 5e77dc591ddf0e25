// SPDX-License-Identifier: LicenseRef-qxkernel
// All methods, extension rules, derivatives and dimensions 1 to 4 against exact rational arithmetic
// (tests/reference/interpolation.py, which agrees with SciPy inside the tables).

#include "interp_values.hpp"
#include "support/reference_lines.hpp"

using namespace interptest;
using qxtest::ReferenceLine;

namespace {

/// The numbers of a line, one after the other.
class Numbers
{
public:
    explicit Numbers(const ReferenceLine& line) : numbers_(line.numbers) {}
    double next() { return numbers_.at(at_++); }
    std::size_t count() { return static_cast<std::size_t>(next()); }
    std::vector<double> list(std::size_t n)
    {
        std::vector<double> v;
        for (std::size_t i = 0; i < n; ++i)
            v.push_back(next());
        return v;
    }
    bool done() const { return at_ == numbers_.size(); }

private:
    const std::vector<double>& numbers_;
    std::size_t at_ = 0;
};

std::vector<ReferenceLine> lines(const char* kind)
{
    const auto found = qxtest::readReferences(QX_REFERENCE_FILE, kind);
    EXPECT_GT(found.size(), 100u);
    return found;
}

/// |got - wanted| in units of 2^-52 times the scale, which counts as 0 only for equal numbers.
double errorIn(double got, double wanted, double scale)
{
    return got == wanted ? 0.0 : std::fabs(got - wanted) / (eps * scale);
}

} // namespace

TEST(InterpolationReference, GridsAgreeWithRationalArithmetic)
{
    double worst = 0.0;
    for (const ReferenceLine& line : lines("grid")) {
        Numbers in(line);
        const int ext = static_cast<int>(in.next());
        const double extValue = in.next();
        const std::size_t d = in.count();
        const std::vector<double> flags = in.list(d);
        Axes axes;
        std::size_t size = 1;
        for (std::size_t k = 0; k < d; ++k) {
            axes.push_back(in.list(in.count()));
            size *= axes.back().size();
        }
        InterpolatorPtr f = make(axes, in.list(size), line.name, ext, extValue);
        for (std::size_t k = 0; k < d; ++k)
            if (flags[k] != 0.0)
                f = f->diff(static_cast<int>(k) + 1);
        for (std::size_t n = in.count(); n > 0; --n) {
            const std::vector<double> x = in.list(d);
            const double wanted = in.next(), scale = in.next(), got = at(f, x);
            const double error = errorIn(got, wanted, scale);
            worst = std::max(worst, error);
            ASSERT_LE(error, 5.0 * static_cast<double>(d) + 2.0)
                << line.text.substr(0, 60) << "... got " << got << ", wanted " << wanted << " at " << testing::PrintToString(x);
            ASSERT_TRUE(sameBits(blockAt(f, x), got));
        }
        ASSERT_TRUE(in.done());
    }
    RecordProperty("worst", std::to_string(worst));
}

TEST(InterpolationReference, CubicsAgreeWithRationalArithmetic)
{
    double worst = 0.0;
    for (const ReferenceLine& line : lines("cubic")) {
        Numbers in(line);
        const int ext = static_cast<int>(in.next());
        const double extValue = in.next();
        const int order = static_cast<int>(in.next());
        const std::size_t n = in.count();
        const std::vector<double> x = in.list(n);
        const std::vector<double> y = in.list(n);
        // A narrow interval beside a wide one: its coefficients are that much less certain.
        double narrowest = inf, widest = 0.0;
        for (std::size_t i = 1; i < n; ++i) {
            narrowest = std::min(narrowest, x[i] - x[i - 1]);
            widest = std::max(widest, x[i] - x[i - 1]);
        }
        InterpolatorPtr f = make({x}, y, line.name, ext, extValue);
        for (int k = 0; k < order; ++k)
            f = f->diff(1);
        for (std::size_t k = in.count(); k > 0; --k) {
            const double point = in.next(), wanted = in.next(), scale = in.next(), got = at(f, {point});
            const double error = errorIn(got, wanted, scale) * narrowest / widest;
            worst = std::max(worst, error);
            ASSERT_LE(error, 20.0) << line.text.substr(0, 40) << "... got " << got << ", wanted " << wanted << " at "
                                    << point;
            ASSERT_TRUE(sameBits(blockAt(f, {point}), got));
        }
        ASSERT_TRUE(in.done());
    }
    RecordProperty("worst", std::to_string(worst));
}
