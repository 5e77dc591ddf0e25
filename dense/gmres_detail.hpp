// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// GMRES for any product, in one element type.

#include "arrayutil.hpp"
#include "dense/arrayutil_detail.hpp"
#include "dense/elementloop_detail.hpp"
#include "krylov.hpp"

#include <cmath>
#include <iostream>

namespace qxarray_detail {

/// A rotation (c, s) with s t + c h = 0, h real and not negative; in terms of quotients up to 1.
template <class T>
void makeRotation(const T& t, double h, T& c, T& s)
{
    const double size = std::abs(t);
    if (h == 0.0) {
        c = T(1);
        s = T(0);
        return;
    }
    double cosine, sine;
    if (h <= size) {
        const double q = h / size;
        cosine = 1.0 / std::sqrt(q * q + 1.0);
        sine = q * cosine;
    } else {
        const double q = size / h;
        sine = 1.0 / std::sqrt(q * q + 1.0);
        cosine = q * sine;
    }
    c = T(cosine);
    if constexpr (std::is_same_v<T, cplx>)
        s = size == 0.0 ? cplx(-sine) : std::conj(t) * (-sine / size);
    else
        s = std::signbit(t) ? sine : -sine;
}

/// The work arrays and one solution, in the type of x.
template <class T>
class Gmres
{
public:
    Gmres(unsigned long n, unsigned long m, const Matrix<1>& b)
        : n_(n), m_(m), V_(n, m), H_(m, m), c_(m), s_(m), g_(m + 1), r_(n), w_(n), b_(n)
    {
        if constexpr (std::is_same_v<T, double>)
            b_ = b.gethdArr();
        else if (b.isReal())
            qxmatrix::copy(b_.data(), b.gethdArr().data(), n);
        else
            b_ = b.gethzArr();
    }

    /// product(x, y): y += A x. observe(j, residual) hears the estimate of the residual's norm after step j of a cycle.
    template <class Product, class Observe>
    int solve(Product product, Array<T, 1>& x, double tol, double scale, int maxIts, Observe observe)
    {
        const double normB = qxarray::norm(b_);
        if (normB == 0.0) {
            x = T(0);
            return 1;
        }
        int its = 0;
        for (;;) {
            // r = -b + A x
            for (unsigned long i = 0; i < n_; ++i)
                r_[i] = -b_[i];
            product(x.data(), r_.data());
            const double beta = qxarray::norm(r_);
            if (scale * beta / normB <= tol)
                return 1;
            if (its > 0 && its >= maxIts)
                return -1;
            const unsigned long k = cycle(product, beta, tol * normB, scale, maxIts, its, observe);
            correct(x, k);
        }
    }

private:
    /// Builds the Krylov space of the residual. Returns its dimension.
    template <class Product, class Observe>
    unsigned long cycle(Product product, double beta, double limit, double scale, int maxIts, int& its, Observe observe)
    {
        setColumn(0, r_, beta == 0.0 ? -1.0 : -1.0 / beta);
        g_ = T(0);
        g_[0] = beta;
        for (unsigned long j = 0;; ++j) {
            w_ = T(0);
            product(&V_(0, j), w_.data());
            qxarray::gramSchmidt(H_, w_, V_, j);
            const double h = qxarray::norm(w_);

            const T t = qxarray::givensRot(H_, c_, s_, j);
            makeRotation(t, h, c_[j], s_[j]);
            H_(j, j) = qxarray_detail::product(c_[j], t) - conjugate(s_[j]) * h;
            g_[j + 1] = qxarray_detail::product(s_[j], g_[j]);
            g_[j] = qxarray_detail::product(c_[j], g_[j]);

            observe(j, std::abs(g_[j + 1]));

            ++its;
            if (j + 1 == m_)
                return m_;
            setColumn(j + 1, w_, h == 0.0 ? 1.0 : 1.0 / h);
            if (scale * std::abs(g_[j + 1]) <= limit || its >= maxIts)
                return j + 1;
        }
    }

    /// x += V H^-1 g on the first k columns.
    void correct(Array<T, 1>& x, unsigned long k)
    {
        bool singular = false;
        for (unsigned long j = 0; j < k; ++j)
            singular = singular || H_(j, j) == T(0);
        if (singular)
            std::cout << "Warning: Singular Hessenberg matrix." << std::endl;
        else
            qxarray::triSolve(H_, g_, true, NoTrans, lapackInt(k));
        qxarray::yPlusAMulx(x, V_, g_, NoTrans, n_, k);
    }

    void setColumn(unsigned long j, const Array<T, 1>& v, double factor)
    {
        T* to = &V_(0, j);
        for (unsigned long i = 0; i < n_; ++i)
            to[i] = v[i] * factor;
    }

    static T conjugate(const T& v)
    {
        if constexpr (std::is_same_v<T, cplx>)
            return std::conj(v);
        else
            return v;
    }

    unsigned long n_, m_;
    Array<T, 2> V_, H_;
    Array<T, 1> c_, s_, g_, r_, w_, b_;
};

} // namespace qxarray_detail
