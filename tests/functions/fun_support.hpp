// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Calls of function objects on single numbers and on arrays, and the functions by name.

#include "errinfo.hpp"
#include "evalfun.hpp"
#include "evalfun_binary.hpp"
#include "evalfun_kernel.hpp"
#include "funfactory.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>

namespace qxtest {

using Complex = std::complex<double>;
constexpr double inf = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double pi = 3.141592653589793;

/// The standard functions and the operators, by name; "^" is the power of two arguments.
inline FunObjPtr fun(const std::string& name)
{
    static const std::map<std::string, FunObjPtr> all = [] {
        std::map<std::string, FunObjPtr> m;
        std::vector<FunObjPtr> standard;
        makeStandardFunctions(standard);
        for (const FunObjPtr& f : standard)
            m[f->getName()] = f;
        for (const FunId id : {AND, EQ, GE, GT, LE, LT, MINUS, NE, NOT, OR, PLUS, PLUSSQ, POW, DIV, TIMES, UMINUS, UPLUS})
            m[makeFunObj(id)->getName()] = makeFunObj(id);
        return m;
    }();
    const auto found = all.find(name);
    if (found == all.end())
        throw std::runtime_error("no function " + name);
    return found->second;
}

inline FunObj::D real(double x) { return boost::make_shared<double>(x); }
inline FunObj::C complex(Complex z) { return boost::make_shared<Complex>(z); }

template <class T>
boost::shared_ptr<Array<T, 1>> arrayOf(const std::vector<T>& values, std::size_t extra = 0)
{
    auto a = boost::make_shared<Array<T, 1>>(static_cast<unsigned long>(values.size() + extra));
    *a = T(-777.0);
    std::copy(values.begin(), values.end(), a->begin());
    return a;
}

struct Result
{
    Complex value;
    unsigned bits;
};

inline Result callReal(const FunObj& f, double x)
{
    const auto p = real(x);
    const unsigned bits = f(p);
    return {*p, bits};
}
inline Result callComplex(const FunObj& f, Complex z)
{
    const auto p = complex(z);
    const unsigned bits = f(p);
    return {*p, bits};
}
inline Result callReal(const FunObj& f, double x, double y)
{
    const auto p = real(x);
    const unsigned bits = f(p, real(y), 1);
    return {*p, bits};
}
inline Result callComplex(const FunObj& f, Complex x, Complex y)
{
    const auto p = complex(x);
    const unsigned bits = f(p, complex(y), 1);
    return {*p, bits};
}

/// Same bits, all NaNs being one.
inline bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0; }
inline bool same(Complex a, Complex b) { return same(a.real(), b.real()) && same(a.imag(), b.imag()); }

/// Equal up to the rounding of the last bits, in the norm; infinities and NaN must agree.
inline bool close(Complex a, Complex b, double tolerance = 1e-14)
{
    if (!std::isfinite(std::abs(b)))
        return same(a + 0.0, b + 0.0);
    return std::abs(a - b) <= tolerance * std::abs(b);
}

} // namespace qxtest
