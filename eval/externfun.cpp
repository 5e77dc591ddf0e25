// SPDX-License-Identifier: LicenseRef-qxkernel
#include "externfun.hpp"

#include "callback.hpp"
#include "evalnodes.hpp"
#include "functions/kernels_detail.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <cmath>

namespace {

using Complex = std::complex<double>;

bool isNaN(double x) { return std::isnan(x); }
bool isNaN(const Complex& z) { return std::isnan(z.real()) || std::isnan(z.imag()); }

template <class T>
unsigned domainBit(const T* values, std::size_t n)
{
    std::size_t bad = 0; // a count and no flag: the loop is then one of vectors
    for (std::size_t i = 0; i < n; ++i)
        bad += isNaN(values[i]);
    return bad != 0 ? kFunDomain : 0u;
}

bool allReal(const Complex* values, std::size_t n)
{
    bool real = true;
    for (std::size_t i = 0; i < n; ++i)
        real &= values[i].imag() == 0.0;
    return real;
}

/// Where the values of each argument lie.
template <class T, class Arg, class Where>
std::vector<const T*> pointersOf(const std::vector<Arg>& args, const Where& where)
{
    std::vector<const T*> pointers;
    pointers.reserve(args.size());
    for (const Arg& arg : args)
        pointers.push_back(where(arg));
    return pointers;
}

} // namespace

ExternFun::ExternFun(const std::string& name, int nArgs, const std::string& complexName,
                     const std::vector<std::string>& derivatives, const std::vector<std::string>& complexDerivatives)
    : MultiFunObj(name, nArgs, false, true), complexName_(complexName), derivatives_(derivatives),
      complexDerivatives_(complexDerivatives)
{
    const auto fits = [nArgs](const std::vector<std::string>& names) {
        return names.empty() || names.size() == static_cast<std::size_t>(nArgs);
    };
    if (nArgs < 1 || !fits(derivatives) || !fits(complexDerivatives))
        QX_RAISE("externfun", "Wrong_number_of_function_arguments", "Name", name);
}

unsigned ExternFun::real(const std::vector<const double*>& args, std::size_t n, double* out) const
{
    Callback::requireSuccess(getName(), Callback::evalDblMat(getName(), args, n, out));
    return domainBit(out, n);
}

unsigned ExternFun::complex(const std::vector<const Complex*>& args, std::size_t n, Complex* out) const
{
    if (complexName_.empty()) {
        std::vector<std::vector<double>> reals;
        for (const Complex* arg : args) {
            if (!allReal(arg, n))
                return kFunKind;
            auto& values = reals.emplace_back(n);
            for (std::size_t i = 0; i < n; ++i)
                values[i] = arg[i].real();
        }
        const auto pointers = pointersOf<double>(reals, [](const auto& values) { return values.data(); });
        std::vector<double> result(n);
        const unsigned bits = real(pointers, n, result.data());
        std::copy(result.begin(), result.end(), out);
        return bits;
    }
    Callback::requireSuccess(complexName_, Callback::evalDCmplxMat(complexName_, args, n, out));
    return domainBit(out, n) | (allReal(out, n) ? 0u : kFunComplex);
}

unsigned ExternFun::operator()(const D& x) const { return real({x.get()}, 1, x.get()); }
unsigned ExternFun::operator()(const C& x) const { return complex({x.get()}, 1, x.get()); }
unsigned ExternFun::operator()(const DA& x, Size size) const { return real({x->data()}, size, x->data()); }
unsigned ExternFun::operator()(const CA& x, Size size) const { return complex({x->data()}, size, x->data()); }

bool ExternFun::unaryInto(double* out, const double* x, unsigned shape, std::size_t n, unsigned& bits) const
{
    if (nArgs() != 1 || (shape & qxkernels::kOutComplex) != 0)
        return false;
    if ((shape & qxkernels::kXComplex) != 0)
        bits = complex({reinterpret_cast<const Complex*>(x)}, n, reinterpret_cast<Complex*>(out));
    else
        bits = real({x}, n, out);
    return true;
}

unsigned ExternFun::operator()(const std::vector<D>& args, int which) const
{
    const auto pointers = pointersOf<double>(args, [](const D& arg) { return arg.get(); });
    return real(pointers, 1, args[static_cast<std::size_t>(which) - 1].get());
}

unsigned ExternFun::operator()(const std::vector<C>& args, int which) const
{
    const auto pointers = pointersOf<Complex>(args, [](const C& arg) { return arg.get(); });
    return complex(pointers, 1, args[static_cast<std::size_t>(which) - 1].get());
}

unsigned ExternFun::operator()(const std::vector<DA>& args, Size size, int which) const
{
    const auto pointers = pointersOf<double>(args, [](const DA& arg) { return arg->data(); });
    return real(pointers, size, args[static_cast<std::size_t>(which) - 1]->data());
}

unsigned ExternFun::operator()(const std::vector<CA>& args, Size size, int which) const
{
    const auto pointers = pointersOf<Complex>(args, [](const CA& arg) { return arg->data(); });
    return complex(pointers, size, args[static_cast<std::size_t>(which) - 1]->data());
}

EvalNodePtr ExternFun::diffRule(const EvalNodes& args, int argIndex, const NodeMakerPtr& maker) const
{
    const auto k = static_cast<std::size_t>(argIndex) - 1;
    const auto nameIn = [k](const std::vector<std::string>& names) { return names.empty() ? std::string() : names[k]; };
    if (nameIn(derivatives_).empty())
        QX_RAISE("externfun", "Differentiation_rule_missing", "Function", getName());
    return maker->makeOpNode(
        boost::make_shared<ExternFun>(nameIn(derivatives_), nArgs(), nameIn(complexDerivatives_)), args);
}
