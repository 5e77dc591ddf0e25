// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxmathfun.hpp"

#include "functions/kernels_detail.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "qxspecfun.hpp"

#include <cmath>

using Complex = std::complex<double>;
using qxkernels::kernels;
using K = qxkernels::KernelTable;

namespace qxmath {

namespace {

double number(qxkernels::Unary K::*kernel, double x)
{
    (kernels().*kernel).real(&x, &x, 1);
    return x;
}

/// The value of a special function that has one everywhere: limits and NaN are results.
template <class T, class F>
T valueOf(F function, const T& x)
{
    T result;
    function(x, result);
    return result;
}

[[noreturn]] void raiseBessel(int kind, double nu, int status)
{
    QX_RAISE("qxmathfun", "Error_calculating_bessel_function",
             qxbase::ExceptionArgs{{"m", qxutil::toString(kind)},
                                   {"nu", qxutil::toString(nu)},
                                   {"Error_code", qxutil::toString(status)}});
}

Complex besselOrRaise(BesselKind kind, double nu, const Complex& z)
{
    Complex result;
    if (const int status = besselStatus(kind, nu, z, result); status != QxSpecfunOk)
        raiseBessel(static_cast<int>(kind), nu, status);
    return result;
}

} // namespace

int besselStatus(BesselKind kind, double nu, const Complex& z, Complex& result)
{
    switch (kind) {
    case BesselKind::J: return qxbesselj(nu, z, result);
    case BesselKind::Y: return qxbessely(nu, z, result);
    case BesselKind::I: return qxbesseli(nu, z, result);
    case BesselKind::K: break;
    }
    return qxbesselk(nu, z, result);
}

int besselStatus(BesselKind kind, double nu, double x, double& result)
{
    switch (kind) {
    case BesselKind::J: return qxbesselj(nu, x, result);
    case BesselKind::Y: return qxbessely(nu, x, result);
    case BesselKind::I: return qxbesseli(nu, x, result);
    case BesselKind::K: break;
    }
    return qxbesselk(nu, x, result);
}

Complex besselj(double nu, const Complex& z) { return besselOrRaise(BesselKind::J, nu, z); }
Complex bessely(double nu, const Complex& z) { return besselOrRaise(BesselKind::Y, nu, z); }
Complex besseli(double nu, const Complex& z) { return besselOrRaise(BesselKind::I, nu, z); }
Complex besselk(double nu, const Complex& z) { return besselOrRaise(BesselKind::K, nu, z); }
Complex besselh(double nu, const Complex& z) { return besselh(1, nu, z); }

Complex besselh(int kind, double nu, const Complex& z)
{
    Complex result;
    if (const int status = qxbesselh(kind, nu, z, result); status != QxSpecfunOk)
        raiseBessel(kind, nu, status);
    return result;
}

double erf(double x) { return number(&K::Erf, x); }
double erfc(double x) { return valueOf([](double t, double& r) { qxerfc(t, r); }, x); }
double erfcx(double x) { return valueOf([](double t, double& r) { qxerfcx(t, r); }, x); }
Complex erf(const Complex& z) { return valueOf([](const Complex& t, Complex& r) { qxerf(t, r); }, z); }
Complex erfc(const Complex& z) { return valueOf([](const Complex& t, Complex& r) { qxerfc(t, r); }, z); }
Complex erfcx(const Complex& z) { return valueOf([](const Complex& t, Complex& r) { qxerfcx(t, r); }, z); }

double gammainc(double x, double a)
{
    if (x < 0.0 || a < 0.0)
        QX_RAISE("qxmathfun", "Argument 1 must be nonnegative.");
    if (std::isnan(x) || std::isnan(a) || (std::isinf(x) && std::isinf(a)))
        return qxGetNaN();
    if (a == 0.0 || std::isinf(x))
        return 1.0;
    if (std::isinf(a))
        return 0.0;
    double result;
    qxgammainc(x, a, result);
    return result;
}

double betainc(double x, double a, double b)
{
    if (x < 0.0 || x > 1.0)
        QX_RAISE("qxmathfun", "Argument 1 must be in [0,1], inclusive.");
    if (a < 0.0)
        QX_RAISE("qxmathfun", "Argument 2 must be nonnegative.");
    if (b < 0.0)
        QX_RAISE("qxmathfun", "Argument 3 must be nonnegative.");
    if (std::isnan(x) || std::isnan(a) || std::isnan(b))
        return qxGetNaN();
    if (std::isinf(a) || std::isinf(b)) {
        if (x == 0.0 || x == 1.0)
            return x;
        return std::isinf(a) && std::isinf(b) ? qxGetNaN() : std::isinf(b) ? 1.0 : 0.0;
    }
    double result;
    qxbetainc(x, a, b, result);
    return result;
}

} // namespace qxmath
