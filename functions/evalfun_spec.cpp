// SPDX-License-Identifier: LicenseRef-qxkernel
#include "evalfun_spec.hpp"

#include "errinfo.hpp"
#include "functions/complex_lanes_detail.hpp"
#include "functions/records_detail.hpp"
#include "qxexception.hpp"
#include "qxmathfun.hpp"
#include "qxnumber.hpp"
#include "qxspecfun.hpp"

#include <algorithm>
#include <cmath>

using namespace qxfun_detail;
using namespace qxkernels;
using Complex = std::complex<double>;

namespace {

boost::shared_ptr<ErrInfo> errorOf(const FunObj& f, const char* key)
{
    auto errors = boost::make_shared<ErrInfo>();
    errors->newLine("evalfun_spec", __LINE__);
    (*errors)["message"] = key;
    (*errors)["fun"] = f.getName();
    return errors;
}

template <bool complexStorage>
auto numberAt(const double* p)
{
    if constexpr (complexStorage)
        return Complex(p[0], p[1]);
    else
        return *p;
}

/// The sixteen forms of a function that is computed number by number: f.real(x, y, bits) and f.complex(x, y, bits).
template <bool xComplex, bool yComplex, bool outComplex, class F>
unsigned pointwise(const F& f, double* out, const double* x, const double* y, unsigned shape, std::size_t n)
{
    const std::size_t stepX = shape & kXScalar ? 0 : xComplex ? 2 : 1, stepY = shape & kYScalar ? 0 : yComplex ? 2 : 1;
    unsigned bits = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const auto a = numberAt<xComplex>(x + stepX * i);
        const auto b = numberAt<yComplex>(y + stepY * i);
        if constexpr (outComplex) {
            const Complex z = f.complex(a, b, bits);
            out[2 * i] = z.real();
            out[2 * i + 1] = z.imag();
            bits |= z.imag() != 0.0 ? kFunComplex : 0u;
        } else {
            out[i] = f.real(std::real(a), std::real(b), bits); // a complex operand of a real target is really real
        }
    }
    return bits;
}

template <class F>
unsigned pointwise(const F& f, double* out, const double* x, const double* y, unsigned shape, std::size_t n)
{
    switch (shape & (kXComplex | kYComplex | kLikeY)) {
    case 0:
    case kLikeY:             return pointwise<false, false, false>(f, out, x, y, shape, n);
    case kXComplex:          return pointwise<true, false, true>(f, out, x, y, shape, n);
    case kXComplex | kLikeY: return pointwise<true, false, false>(f, out, x, y, shape, n);
    case kYComplex:          return pointwise<false, true, false>(f, out, x, y, shape, n);
    case kYComplex | kLikeY: return pointwise<false, true, true>(f, out, x, y, shape, n);
    default:                 return pointwise<true, true, true>(f, out, x, y, shape, n);
    }
}

Complex quotient(const Complex& a, const Complex& b)
{
    double x[2] = {a.real(), a.imag()};
    const double y[2] = {b.real(), b.imag()};
    laneDivide(x, y);
    return {x[0], x[1]};
}

/// Complex forms of the steps: a complex width is an error, the real axis takes the real form.
template <class Step, class Inside, class Outside>
Complex complexStep(const Step& step, const Complex& x, const Complex& w, unsigned& bits, Inside inside, Outside outside)
{
    if (w.imag() != 0.0)
        bits |= kFunDomain;
    if (x.imag() == 0.0 && w.imag() == 0.0)
        return step.real(x.real(), w.real(), bits);
    return std::abs(w) > std::abs(x) ? inside(quotient(x, w)) : outside(x, w);
}

/// "d" after "qx": the name of the derivative of a step.
std::string derivativeName(const std::string& name) { return name.substr(0, 2) + "d" + name.substr(std::min<std::size_t>(2, name.size())); }

} // namespace

// ---- smoothed steps

TransPolyFun::TransPolyFun(const std::string& name, const boost::shared_ptr<PolyEvaluator>& poly, double low, double high)
    : name_(name), poly_(poly), low_(low), high_(high)
{
}

unsigned int TransPolyFun::apply(double* out, const double* x, const double* w, unsigned shape, std::size_t n) const
{
    struct Step
    {
        const PolyEvaluator& p;
        double low, high;
        double real(double t, double width, unsigned&) const
        {
            const double q = t / width;
            return std::fabs(width) > std::fabs(t) ? p(q) : q < 0.0 ? low : high;
        }
        Complex complex(const Complex& t, const Complex& width, unsigned& bits) const
        {
            return complexStep(
                *this, t, width, bits, [this](const Complex& q) { return p(q); },
                [this](const Complex& a, const Complex& b) { return Complex(quotient(a, b).real() < 0.0 ? low : high); });
        }
    };
    return pointwise(Step{*poly_, low_, high_}, out, x, w, shape, n);
}

EvalNodePtr TransPolyFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const Term x(args[0], *maker), w(args[1], *maker);
    const FunObjPtr dirac = boost::make_shared<DiracPolyFun>(derivativeName(name_), poly_->derivative());
    const Term d = x.apply(dirac, w);
    return (argIndex == 1 ? d : -(x / w * d)).node();
}

boost::shared_ptr<ErrInfo> TransPolyFun::makeError(unsigned int bits) const
{
    return bits & kFunDomain ? errorOf(*this, "trans") : FunObj::makeError(bits);
}

DiracPolyFun::DiracPolyFun(const std::string& name, const boost::shared_ptr<PolyEvaluator>& poly) : name_(name), poly_(poly)
{
}

unsigned int DiracPolyFun::apply(double* out, const double* x, const double* w, unsigned shape, std::size_t n) const
{
    struct Dirac
    {
        const PolyEvaluator& p;
        double real(double t, double width, unsigned&) const
        {
            return std::fabs(width) > std::fabs(t) ? p(t / width) / width : 0.0;
        }
        Complex complex(const Complex& t, const Complex& width, unsigned& bits) const
        {
            return complexStep(
                *this, t, width, bits, [&](const Complex& q) { return quotient(p(q), width); },
                [](const Complex&, const Complex&) { return Complex(); });
        }
    };
    return pointwise(Dirac{*poly_}, out, x, w, shape, n);
}

EvalNodePtr DiracPolyFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const Term x(args[0], *maker), w(args[1], *maker);
    const FunObjPtr steeper = boost::make_shared<DiracPolyFun>(derivativeName(name_), poly_->derivative());
    const Term e = x.apply(steeper, w);
    if (argIndex == 1)
        return (e / w).node();
    const FunObjPtr self = boost::make_shared<DiracPolyFun>(*this);
    return (-((x.apply(self, w) + x / w * e) / w)).node();
}

boost::shared_ptr<ErrInfo> DiracPolyFun::makeError(unsigned int bits) const
{
    return bits & kFunDomain ? errorOf(*this, "trans") : FunObj::makeError(bits);
}

FunObjPtr makeStepFunction(const std::string& name)
{
    // Each step reaches its high value at x = w, with as many derivatives 0 there as its name promises.
    // Nothing here has a destructor: a host may make its functions in a static one.
    struct Entry
    {
        const char* name;
        double low; ///< high is 1
        int terms;
        double poly[8];
    };
    static constexpr Entry steps[] = {
        {"qxsmhs", 0.0, 8, {0.5, 1.640625, 0.0, -2.734375, 0.0, 2.296875, 0.0, -0.703125}},
        {"qxsmsign", -1.0, 8, {0.0, 3.28125, 0.0, -5.46875, 0.0, 4.59375, 0.0, -1.40625}},
        {"qxc1hs", 0.0, 4, {0.5, 0.75, 0.0, -0.25}},
        {"qxc2hs", 0.0, 6, {0.5, 0.9375, 0.0, -0.625, 0.0, 0.1875}},
    };
    for (const Entry& e : steps) {
        const auto poly = boost::make_shared<PolyEvaluator>(std::vector<double>(e.poly, e.poly + e.terms));
        if (name == e.name)
            return boost::make_shared<TransPolyFun>(name, poly, e.low, 1.0);
        if (name == derivativeName(e.name)) // its table is that of the derivative, exactly
            return boost::make_shared<DiracPolyFun>(name, poly->derivative());
    }
    QX_RAISE("evalfun_spec", "Evaluation_internal_error", "fun", name);
}

// ---- piecewise functions

PiecewisePolyFun::PiecewisePolyFun(const std::string& name, const std::vector<double>& bounds, const Pieces& pieces,
                                   bool realIfReal, bool linear)
    : name_(name), bounds_(bounds), pieces_(pieces), realIfReal_(realIfReal), linear_(linear)
{
    if (pieces.empty() || bounds.size() != pieces.size() + 1)
        QX_RAISE("evalfun_spec", "Piecewise_unsupported_intervals", "Intervals", static_cast<unsigned long>(pieces.size()));
    for (std::size_t k = 1; k < bounds.size(); ++k)
        if (!(bounds[k - 1] < bounds[k]))
            QX_RAISE("evalfun_spec", "Piecewise_specification_out_of_order", "Interval", static_cast<unsigned long>(k));
    for (const auto& piece : pieces)
        if (!piece)
            QX_RAISE("evalfun_spec", "Piecewise_unsupported_order");
}

int PiecewisePolyFun::locatePolynom(double x) const
{
    if (!(x >= bounds_.front() && x <= bounds_.back()))
        return -1;
    const auto above = std::upper_bound(bounds_.begin(), bounds_.end() - 1, x);
    return static_cast<int>(above - bounds_.begin()) - 1;
}

double PiecewisePolyFun::value(double x, unsigned& bits) const
{
    const int k = locatePolynom(x);
    if (k < 0) {
        bits |= kFunDomain;
        return qxGetNaN();
    }
    return (*pieces_[static_cast<std::size_t>(k)])(x);
}

unsigned int PiecewisePolyFun::applyReal(double* out, const double* x, std::size_t n) const
{
    unsigned bits = 0;
    for (std::size_t i = 0; i < n; ++i)
        out[i] = value(x[i], bits);
    return bits;
}

unsigned int PiecewisePolyFun::applyComplex(double* out, const double* z, std::size_t n) const
{
    unsigned bits = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const bool real = z[2 * i + 1] == 0.0;
        bits |= real ? 0u : kFunKind;
        out[2 * i] = real ? value(z[2 * i], bits) : z[2 * i];
        out[2 * i + 1] = z[2 * i + 1];
    }
    return bits;
}

EvalNodePtr PiecewisePolyFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    if (argIndex != 1)
        return maker->makeZeroNode();
    Pieces pieces;
    for (const auto& piece : pieces_)
        pieces.push_back(piece->diff());
    const FunObjPtr d = boost::make_shared<PiecewisePolyFun>("d" + name_, bounds_, pieces, realIfReal_, false);
    return Term(args[0], *maker).apply(d).node();
}

boost::shared_ptr<ErrInfo> PiecewisePolyFun::makeError(unsigned int bits) const
{
    return bits & kFunDomain  ? errorOf(*this, "piecewise_range")
           : bits & kFunKind ? errorOf(*this, "piecewise_cmplx")
                             : FunObj::makeError(bits);
}

// ---- Bessel functions

static int besselKind(const std::string& name)
{
    static constexpr const char* names[] = {"besselj", "bessely", "besseli", "besselk"};
    const auto found = std::find(std::begin(names), std::end(names), name);
    if (found != std::end(names))
        return static_cast<int>(found - std::begin(names));
    if (name != "bessel")
        QX_RAISE("evalfun_spec", "Evaluation_internal_error", "fun", name);
    return 0;
}

BesselFun::BesselFun(const std::string& name) : name_(name), kind_(besselKind(name)) {}

unsigned int BesselFun::apply(double* out, const double* nu, const double* z, unsigned shape, std::size_t n) const
{
    struct Bessel
    {
        qxmath::BesselKind kind;
        // No real value for a negative argument where there is a complex one: not defined for this kind of argument.
        double real(double order, double x, unsigned& bits) const
        {
            double result;
            const int status = qxmath::besselStatus(kind, order, x, result);
            if (status == QxSpecfunOk)
                return result;
            bits |= status == QxSpecfunDomain && x < 0.0 ? kFunKind : kFunDomain;
            return qxGetNaN();
        }
        Complex complex(const Complex& order, const Complex& x, unsigned& bits) const
        {
            if (order.imag() != 0.0) {
                bits |= kFunKind;
                return qxGetNaN();
            }
            if (x.imag() == 0.0) {
                double result;
                if (qxmath::besselStatus(kind, order.real(), x.real(), result) == QxSpecfunOk)
                    return result;
            }
            Complex result;
            if (qxmath::besselStatus(kind, order.real(), x, result) == QxSpecfunOk)
                return result;
            bits |= kFunDomain;
            return qxGetNaN();
        }
    };
    return pointwise(Bessel{static_cast<qxmath::BesselKind>(kind_)}, out, nu, z, shape, n);
}

EvalNodePtr BesselFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    if (argIndex != 2)
        return maker->makeZeroNode();
    const Term nu(args[0], *maker), x(args[1], *maker);
    const FunObjPtr self = boost::make_shared<BesselFun>(*this);
    const Term below = (nu - 1.0).apply(self, x), above = (nu + 1.0).apply(self, x);
    const auto kind = static_cast<qxmath::BesselKind>(kind_);
    if (kind == qxmath::BesselKind::I)
        return (0.5 * (below + above)).node();
    if (kind == qxmath::BesselKind::K)
        return (-0.5 * (below + above)).node();
    return (0.5 * (below - above)).node();
}

boost::shared_ptr<ErrInfo> BesselFun::makeError(unsigned int bits) const
{
    return bits & kFunDomain  ? errorOf(*this, "bessel_range")
           : bits & kFunKind ? errorOf(*this, "bessel_cmplx")
                             : FunObj::makeError(bits);
}

// ---- sums of any number of terms

GenAddFun::GenAddFun(const std::string& name, int nArgs) : MultiFunObj(name, nArgs, false, true) {}

/// Sums of `width` n doubles, a block at a time, so that the target may be any of the arguments.
template <class Data>
static void addAll(std::size_t terms, Data data, std::size_t target, std::size_t n)
{
    constexpr std::size_t kBlock = 256;
    double sum[kBlock];
    for (std::size_t begin = 0; begin < n; begin += kBlock) {
        const std::size_t m = std::min(kBlock, n - begin);
        std::copy_n(data(0) + begin, m, sum);
        for (std::size_t k = 1; k < terms; ++k) {
            const double* x = data(k) + begin;
            for (std::size_t i = 0; i < m; ++i)
                sum[i] += x[i];
        }
        std::copy_n(sum, m, data(target) + begin);
    }
}

unsigned int GenAddFun::operator()(const std::vector<D>& args, int which) const
{
    addAll(args.size(), [&](std::size_t k) { return args[k].get(); }, static_cast<std::size_t>(which) - 1, 1);
    return 0;
}
unsigned int GenAddFun::operator()(const std::vector<C>& args, int which) const
{
    addAll(args.size(), [&](std::size_t k) { return reinterpret_cast<double*>(args[k].get()); },
           static_cast<std::size_t>(which) - 1, 2);
    return kFunComplex;
}
unsigned int GenAddFun::operator()(const std::vector<DA>& args, Size size, int which) const
{
    addAll(args.size(), [&](std::size_t k) { return args[k]->data(); }, static_cast<std::size_t>(which) - 1, size);
    return 0;
}
unsigned int GenAddFun::operator()(const std::vector<CA>& args, Size size, int which) const
{
    addAll(args.size(), [&](std::size_t k) { return reinterpret_cast<double*>(args[k]->data()); },
           static_cast<std::size_t>(which) - 1, 2 * std::size_t(size));
    return kFunComplex;
}

EvalNodePtr GenAddFun::diffRule(const EvalNodes&, int, const NodeMakerPtr& maker) const { return maker->makeUnitNode(); }
