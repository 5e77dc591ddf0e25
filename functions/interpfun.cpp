// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpfun.hpp"

#include "array.hpp"
#include "errinfo.hpp"
#include "functions/kernels_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <cmath>

namespace {

// Bits of its own, within kFunErrorMask.
constexpr unsigned kNaNArgument = 8, kOutside = 16;

constexpr int kMostArgs = 32;

/// Pointers to the numbers of each argument.
struct Pointers
{
    template <class Args, class Data>
    Pointers(const Args& args, Data data)
    {
        for (std::size_t k = 0; k < args.size(); ++k)
            p[k] = data(args[k]);
    }
    const double* p[kMostArgs];
};

double* parts(std::complex<double>* z) { return reinterpret_cast<double*>(z); }

int checkedDim(const boost::shared_ptr<const Interpolator>& interpolator)
{
    if (!interpolator || interpolator->dim() < 1 || interpolator->dim() > kMostArgs)
        QX_RAISE("interpfun", "Wrong_size_of_interpolation_data");
    return interpolator->dim();
}

} // namespace

InterpFun::InterpFun(const std::string& name, const boost::shared_ptr<const Interpolator>& interpolator, const Ranges& limits)
    : MultiFunObj(name, checkedDim(interpolator), true, true), interpolator_(interpolator), limits_(limits),
      derivatives_(static_cast<std::size_t>(nArgs()))
{
}

InterpFun::InterpFun(const std::string& name, const boost::shared_ptr<const Interpolator>& interpolator, bool errorOutside)
    : InterpFun(name, interpolator, Ranges())
{
    for (int k = 1; errorOutside && k <= nArgs(); ++k)
        limits_.push_back(interpolator->range(k));
}

InterpFun::InterpFun(const std::string& name, const InterpTable& table)
    : InterpFun(name, table.interpolator, table.errorOutside)
{
}

InterpFun::~InterpFun() = default;

// ---- values

/// Marks the points that have no value. Returns what is wrong with them.
unsigned InterpFun::markErrors(const double* const* args, std::size_t n, bool* bad) const
{
    std::fill_n(bad, n, false);
    bool nan = false, outside = false;
    for (std::size_t k = 0; k < derivatives_.size(); ++k) {
        const double* x = args[k];
        for (std::size_t i = 0; i < n; ++i) {
            bad[i] |= std::isnan(x[i]);
            nan |= std::isnan(x[i]);
        }
        if (limits_.empty())
            continue;
        const auto [low, high] = limits_[k];
        for (std::size_t i = 0; i < n; ++i) {
            const bool beyond = x[i] < low || x[i] > high;
            bad[i] |= beyond;
            outside |= beyond;
        }
    }
    return (nan ? kNaNArgument : 0u) | (outside ? kOutside : 0u);
}

/// A block at a time: out may be one of the arguments, and what is wrong with these must be seen first.
unsigned InterpFun::applyReal(double* out, const double* const* args, std::size_t n) const
{
    constexpr std::size_t kBlock = 256;
    unsigned bits = 0;
    const double* x[kMostArgs];
    for (std::size_t begin = 0; begin < n; begin += kBlock) {
        const std::size_t m = std::min(kBlock, n - begin);
        for (std::size_t k = 0; k < derivatives_.size(); ++k)
            x[k] = args[k] + begin;
        bool bad[kBlock];
        const unsigned wrong = markErrors(x, m, bad);
        double* y = out + begin;
        interpolator_->evaluate(x, m, y);
        bool nan = false;
        for (std::size_t i = 0; i < m; ++i) {
            nan |= std::isnan(y[i]) && !bad[i];
            y[i] = bad[i] ? qxGetNaN() : y[i];
        }
        bits |= wrong | (nan ? unsigned(kFunDomain) : 0u);
    }
    return bits;
}

unsigned InterpFun::applyComplex(double* out, const double* const* args, std::size_t n) const
{
    constexpr std::size_t kBlock = 64;
    unsigned bits = 0;
    double x[kMostArgs][kBlock], y[kBlock];
    const double* rows[kMostArgs];
    for (std::size_t begin = 0; begin < n; begin += kBlock) {
        const std::size_t m = std::min(kBlock, n - begin);
        bool complex[kBlock] = {};
        for (std::size_t k = 0; k < derivatives_.size(); ++k) {
            const double* z = args[k] + 2 * begin;
            for (std::size_t i = 0; i < m; ++i) {
                x[k][i] = z[2 * i];
                complex[i] |= z[2 * i + 1] != 0.0;
            }
            rows[k] = x[k];
        }
        bits |= applyReal(y, rows, m);
        for (std::size_t i = 0; i < m; ++i) {
            bits |= complex[i] ? unsigned(kFunKind) : 0u;
            out[2 * (begin + i)] = complex[i] ? qxGetNaN() : y[i];
            out[2 * (begin + i) + 1] = 0.0;
        }
    }
    return bits;
}

// ---- call forms

// Those of other arities than the function's touch nothing.

unsigned int InterpFun::operator()(const D& x) const
{
    const double* const args[] = {x.get()};
    return isMulti() ? 0 : applyReal(x.get(), args, 1);
}
unsigned int InterpFun::operator()(const C& x) const
{
    const double* const args[] = {parts(x.get())};
    return isMulti() ? 0 : applyComplex(parts(x.get()), args, 1);
}
unsigned int InterpFun::operator()(const DA& x, Size size) const
{
    const double* const args[] = {x->data()};
    return isMulti() ? 0 : applyReal(x->data(), args, size);
}
unsigned int InterpFun::operator()(const CA& x, Size size) const
{
    const double* const args[] = {parts(x->data())};
    return isMulti() ? 0 : applyComplex(parts(x->data()), args, size);
}

unsigned int InterpFun::operator()(const std::vector<D>& args, int which) const
{
    const Pointers x(args, [](const D& v) { return v.get(); });
    return applyReal(args[static_cast<std::size_t>(which) - 1].get(), x.p, 1);
}
unsigned int InterpFun::operator()(const std::vector<C>& args, int which) const
{
    const Pointers x(args, [](const C& v) { return parts(v.get()); });
    return applyComplex(parts(args[static_cast<std::size_t>(which) - 1].get()), x.p, 1);
}
unsigned int InterpFun::operator()(const std::vector<DA>& args, Size size, int which) const
{
    const Pointers x(args, [](const DA& v) { return v->data(); });
    return applyReal(args[static_cast<std::size_t>(which) - 1]->data(), x.p, size);
}
unsigned int InterpFun::operator()(const std::vector<CA>& args, Size size, int which) const
{
    const Pointers x(args, [](const CA& v) { return parts(v->data()); });
    return applyComplex(parts(args[static_cast<std::size_t>(which) - 1]->data()), x.p, size);
}

bool InterpFun::unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const
{
    if (isMulti() || (shape & qxkernels::kOutComplex) != 0)
        return false;
    bits = (shape & qxkernels::kXComplex) != 0 ? applyComplex(out, &x, n) : applyReal(out, &x, n);
    return true;
}

// ---- rules

FunObjPtr InterpFun::derivative(int argIndex) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    Derivative& d = derivatives_[static_cast<std::size_t>(argIndex - 1)];
    if (!d.known) {
        const boost::shared_ptr<const Interpolator> slope = interpolator_->diff(argIndex);
        if (!dynamic_cast<const ZeroInterpolator*>(slope.get()))
            d.fun.reset(new InterpFun(getName() + "_d" + std::to_string(argIndex), slope, limits_));
        d.known = true;
    }
    return d.fun;
}

EvalNodePtr InterpFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const FunObjPtr slope = argIndex < 1 || argIndex > nArgs() ? FunObjPtr() : derivative(argIndex);
    return slope ? maker->makeOpNode(slope, args) : maker->makeZeroNode();
}

boost::shared_ptr<ErrInfo> InterpFun::makeError(unsigned int bits) const
{
    const boost::shared_ptr<ErrInfo> errors = FunObj::makeError(bits);
    if (bits & kFunKind)
        (*errors)["message"] = "interp_cmplx";
    else if (bits & kOutside)
        (*errors)["message"] = "interp_range";
    else if (bits & kNaNArgument)
        (*errors)["message"] = "nan";
    return errors;
}
