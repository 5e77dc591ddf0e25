// SPDX-License-Identifier: LicenseRef-qxkernel
// The QZ iteration for a Hessenberg-triangular pencil, with implicit single and double shifts.

#include "dense/arrayutil_detail.hpp"
#include "dense/qz_detail.hpp"
#include "qzmod.hpp"

#include <algorithm>
#include <cmath>
#include <complex>

using namespace qxarray_detail;

namespace {

/// A column-major matrix that somebody owns; indices from 0. Row ranges below are inclusive.
struct View
{
    double* data = nullptr;
    std::ptrdiff_t ld = 1;
    double& operator()(int i, int j) const { return data[i + ld * j]; }
    double* column(int j) const { return data + ld * j; }
};

/// (x, y) -> (c x + s y, c y - s x)
struct Rotation
{
    double c, s;
    void operator()(double& x, double& y) const
    {
        const double u = c * x + s * y;
        y = c * y - s * x;
        x = u;
    }
};

/// The rotation that turns (f, g) into (f, 0); f and g are overwritten so.
Rotation annihilate(double& f, double& g)
{
    Rotation r;
    double length;
    dlartg_(&f, &g, &r.c, &r.s, &length);
    f = length;
    g = 0.0;
    return r;
}

/// I - tau (1, v1, v2)' (1, v1, v2)
struct Reflector
{
    double v1, v2, tau;
    void operator()(double& x, double& y, double& z) const
    {
        const double t = tau * (x + v1 * y + v2 * z);
        x -= t;
        y -= t * v1;
        z -= t * v2;
    }
};

/// The reflector that turns (a, b, c) into a multiple of the first unit vector, which is returned in a. The numbers are
/// scaled first, so that squares neither overflow nor vanish.
Reflector reflect(double& a, double b, double c)
{
    const double size = std::max({std::fabs(a), std::fabs(b), std::fabs(c)});
    if ((b == 0.0 && c == 0.0) || !(size > 0.0))
        return {0.0, 0.0, 0.0};
    const double x = a / size, y = b / size, z = c / size;
    const double length = -std::copysign(std::sqrt(x * x + y * y + z * z), x);
    const double head = x - length;
    a = length * size;
    return {y / head, z / head, -head / length};
}

/// A unit vector that both rows (a), (b) of three numbers take to zero. The second row is reflected onto its last place;
/// what the first row keeps in the other two places decides.
void commonNullVector(const double (&a)[3], const double (&b)[3], double (&x)[3])
{
    double last = b[2];
    const Reflector r = reflect(last, b[1], b[0]); // acts on (third, second, first)
    double u[3] = {a[0], a[1], a[2]};
    r(u[2], u[1], u[0]);
    const double size = std::max(std::fabs(u[0]), std::fabs(u[1]));
    x[0] = 1.0;
    x[1] = x[2] = 0.0;
    if (size > 0.0) {
        const double p = u[0] / size, q = u[1] / size, length = std::sqrt(p * p + q * q);
        x[0] = q / length;
        x[1] = -p / length;
    }
    r(x[2], x[1], x[0]);
}

/// The state of the iteration. The active block runs from row first to row last, its step acts on rows and columns from
/// low to high: of the whole matrix for a Schur form, of the block when only eigenvalues are wanted.
class QZ
{
public:
    QZ(int n, int ilo, int ihi, View h, View t, double* alphar, double* alphai, double* beta, bool schur, double shiftScale)
        : n_(n), ilo_(ilo), ihi_(ihi), H_(h), T_(t), alphar_(alphar), alphai_(alphai), beta_(beta), schur_(schur),
          shiftScale_(shiftScale), safmin_(dlamch_("S", 1)), safmax_(1.0 / safmin_), ulp_(dlamch_("P", 1))
    {
        const int size = ihi - ilo + 1, ldh = static_cast<int>(h.ld), ldt = static_cast<int>(t.ld);
        double none;
        const double normH = size > 0 ? dlanhs_("F", &size, &H_(ilo, ilo), &ldh, &none, 1) : 0.0;
        const double normT = size > 0 ? dlanhs_("F", &size, &T_(ilo, ilo), &ldt, &none, 1) : 0.0;
        smallH_ = std::max(safmin_, ulp_ * normH);
        smallT_ = std::max(safmin_, ulp_ * normT);
        scaleH_ = 1.0 / std::max(safmin_, normH);
        scaleT_ = 1.0 / std::max(safmin_, normT);
        maxit_ = 30 * size;
    }

    void accumulate(View q, View z)
    {
        Q_ = q;
        Z_ = z;
    }

    /// 0, or the number of the last row that did not converge, counted from 1.
    int run()
    {
        low_ = schur_ ? 0 : ilo_;
        high_ = schur_ ? n_ - 1 : ihi_;
        for (int j = ihi_ + 1; j < n_; ++j)
            storeReal(j, 0);
        last_ = ihi_;
        for (int it = 0; last_ >= ilo_; ++it) {
            if (it == maxit_)
                return last_ + 1;
            switch (lookForSplit()) {
            case Split::Real:
                storeReal(last_, low_);
                dropTail(last_ - 1);
                break;
            case Split::Infinite:
                clearLastRow();
                storeReal(last_, low_);
                dropTail(last_ - 1);
                break;
            case Split::None:
                step();
                break;
            }
        }
        for (int j = 0; j < ilo_; ++j)
            storeReal(j, 0);
        return 0;
    }

private:
    enum class Split { None, Real, Infinite };

    // ---- transformations of the pencil and of the bases

    void rotateRows(const View& M, const Rotation& r, int i, int from, int to) const
    {
        for (int j = from; j <= to; ++j)
            r(M(i, j), M(i + 1, j));
    }
    /// Columns j and k, the first one as x.
    static void rotateColumns(const View& M, const Rotation& r, int j, int k, int from, int to)
    {
        double *__restrict x = M.column(j), *__restrict y = M.column(k);
        for (int i = from; i <= to; ++i)
            r(x[i], y[i]);
    }
    void rotateQ(const Rotation& r, int i) const
    {
        if (Q_.data)
            rotateColumns(Q_, r, i, i + 1, 0, n_ - 1);
    }
    void rotateZ(const Rotation& r, int j, int k) const
    {
        if (Z_.data)
            rotateColumns(Z_, r, j, k, 0, n_ - 1);
    }
    static void reflectColumns(const View& M, const Reflector& r, int j, int from, int to)
    {
        double *__restrict x = M.column(j), *__restrict y = M.column(j + 1), *__restrict z = M.column(j + 2);
        for (int i = from; i <= to; ++i)
            r(x[i], y[i], z[i]);
    }
    void negateColumn(int j, int from) const
    {
        for (int i = from; i <= j; ++i) {
            H_(i, j) = -H_(i, j);
            T_(i, j) = -T_(i, j);
        }
        if (Z_.data)
            for (int i = 0; i < n_; ++i)
                Z_(i, j) = -Z_(i, j);
    }

    // ---- eigenvalues that have split off

    /// Row j stands alone: its eigenvalue, with beta >= 0.
    void storeReal(int j, int from) const
    {
        if (T_(j, j) < 0.0)
            negateColumn(j, schur_ ? from : j);
        alphar_[j] = H_(j, j);
        alphai_[j] = 0.0;
        beta_[j] = T_(j, j);
    }

    /// Goes on with the rows up to last.
    void dropTail(int last)
    {
        last_ = last;
        steps_ = 0;
        shift_ = 0.0;
        if (!schur_) {
            high_ = last_;
            low_ = ilo_;
        }
    }

    // ---- where the pencil splits

    bool isSmallSubdiagonal(int j) const
    {
        return std::fabs(H_(j, j - 1)) <= std::max(safmin_, ulp_ * (std::fabs(H_(j, j)) + std::fabs(H_(j - 1, j - 1))));
    }

    /// a b <= c d times the tolerance, for the sizes a and c of neighbouring subdiagonal and diagonal entries: two small
    /// subdiagonal entries in a row, whose product is negligible.
    bool isNegligible(double a, double b, double c) const
    {
        const double larger = std::max(a, c);
        if (larger < 1.0 && larger != 0.0) {
            a /= larger;
            c /= larger;
        }
        return a * (scaleH_ * std::fabs(b)) <= c * (scaleH_ * smallH_);
    }

    /// Looks from the end of the pencil upwards for a place where it splits. None: rows first_ to last_ do not.
    Split lookForSplit()
    {
        if (last_ == ilo_)
            return Split::Real;
        if (isSmallSubdiagonal(last_)) {
            H_(last_, last_ - 1) = 0.0;
            return Split::Real;
        }
        if (std::fabs(T_(last_, last_)) <= smallT_) {
            T_(last_, last_) = 0.0;
            return Split::Infinite;
        }
        for (int j = last_ - 1; j >= ilo_; --j) {
            bool splits = j == ilo_;
            if (!splits && isSmallSubdiagonal(j)) {
                H_(j, j - 1) = 0.0;
                splits = true;
            }
            if (std::fabs(T_(j, j)) < smallT_) {
                T_(j, j) = 0.0;
                const bool nearly =
                    !splits && isNegligible(std::fabs(H_(j, j - 1)), H_(j + 1, j), std::fabs(H_(j, j)));
                if (splits || nearly)
                    return splitOffTop(j, nearly);
                moveZeroToEnd(j);
                return Split::Infinite;
            }
            if (splits) {
                first_ = j;
                return Split::None;
            }
        }
        return Split::None; // not reached: row ilo splits
    }

    /// T(j, j) is 0 and nothing couples row j to those above: a rotation of rows j and j + 1 makes row j an infinite
    /// eigenvalue. If T(j+1, j+1) is small as well, so goes the next row.
    Split splitOffTop(int j, bool nearly)
    {
        for (; j < last_; ++j) {
            const Rotation r = annihilate(H_(j, j), H_(j + 1, j));
            rotateRows(H_, r, j, j + 1, high_);
            rotateRows(T_, r, j, j + 1, high_);
            rotateQ(r, j);
            if (nearly)
                H_(j, j - 1) *= r.c;
            nearly = false;
            if (std::fabs(T_(j + 1, j + 1)) >= smallT_) {
                if (j + 1 >= last_)
                    return Split::Real;
                first_ = j + 1;
                return Split::None;
            }
            T_(j + 1, j + 1) = 0.0;
        }
        return Split::Infinite;
    }

    /// T(j, j) is 0 within the block: the zero is moved down the diagonal of T to its last row.
    void moveZeroToEnd(int j)
    {
        for (; j < last_; ++j) {
            const Rotation left = annihilate(T_(j, j + 1), T_(j + 1, j + 1));
            rotateRows(T_, left, j, j + 2, high_);
            rotateRows(H_, left, j, j - 1, high_);
            rotateQ(left, j);
            const Rotation right = annihilate(H_(j + 1, j), H_(j + 1, j - 1));
            rotateColumns(H_, right, j, j - 1, low_, j);
            rotateColumns(T_, right, j, j - 1, low_, j - 1);
            rotateZ(right, j, j - 1);
        }
    }

    /// T(last, last) is 0: a rotation of the last two columns clears the last row of H but for its diagonal.
    void clearLastRow()
    {
        if (last_ == ilo_)
            return;
        const Rotation r = annihilate(H_(last_, last_), H_(last_, last_ - 1));
        rotateColumns(H_, r, last_, last_ - 1, low_, last_ - 1);
        rotateColumns(T_, r, last_, last_ - 1, low_, last_ - 1);
        rotateZ(r, last_, last_ - 1);
    }

    // ---- one step

    /// Eigenvalues (wr + i wi) / s and, if real, a second one; s > 0. In order: the one nearer to the last diagonal entry.
    struct Shift
    {
        double s, wr, wi;
    };

    Shift shiftOfLastBlock() const
    {
        const int ldh = static_cast<int>(H_.ld), ldt = static_cast<int>(T_.ld);
        const double tiny = 100.0 * safmin_;
        double s1, s2, wr1, wr2, wi;
        dlag2_(&H_(last_ - 1, last_ - 1), &ldh, &T_(last_ - 1, last_ - 1), &ldt, &tiny, &s1, &s2, &wr1, &wr2, &wi);
        const double h = H_(last_, last_), t = T_(last_, last_);
        if (wi == 0.0 && std::fabs(wr1 / s1 * t - h) > std::fabs(wr2 / s2 * t - h))
            return {s2, wr2, 0.0};
        return {s1, wr1, wi};
    }

    void step()
    {
        ++steps_;
        if (!schur_)
            low_ = first_;
        Shift shift;
        if (steps_ % 10 == 0) {
            shift_ = nextExceptionalShift(shift_, H_(last_ - 1, last_), T_(last_ - 1, last_ - 1), maxit_, safmin_, shiftScale_);
            shift = {1.0, shift_, 0.0};
        } else {
            shift = shiftOfLastBlock();
        }
        if (shift.wi == 0.0)
            singleShiftSweep(shift);
        else if (first_ + 1 == last_)
            splitOffPair();
        else
            doubleShiftSweep();
    }

    void singleShiftSweep(Shift shift)
    {
        // Products with entries of the pencil must not overflow.
        double factor = 1.0;
        const double mostS = std::min(scaleH_, 1.0) * (0.5 * safmax_), mostW = std::min(scaleT_, 1.0) * (0.5 * safmax_);
        if (shift.s > mostS)
            factor = mostS / shift.s;
        if (std::fabs(shift.wr) > mostW)
            factor = std::min(factor, mostW / std::fabs(shift.wr));
        const double s = shift.s * factor, w = shift.wr * factor;

        int start = last_ - 1;
        for (; start > first_; --start)
            if (isNegligible(std::fabs(s * H_(start, start - 1)), H_(start + 1, start),
                             std::fabs(s * H_(start, start) - w * T_(start, start))))
                break;

        double f = s * H_(start, start) - w * T_(start, start), g = s * H_(start + 1, start);
        for (int j = start; j < last_; ++j) {
            const Rotation left = j == start ? annihilate(f, g) : annihilate(H_(j, j - 1), H_(j + 1, j - 1));
            rotateRows(H_, left, j, j, high_);
            rotateRows(T_, left, j, j, high_);
            rotateQ(left, j);
            chaseTByColumns(j);
        }
    }

    /// A rotation of columns j + 1 and j clears T(j+1, j).
    void chaseTByColumns(int j) const
    {
        const Rotation right = annihilate(T_(j + 1, j + 1), T_(j + 1, j));
        rotateColumns(H_, right, j + 1, j, low_, std::min(j + 2, last_));
        rotateColumns(T_, right, j + 1, j, low_, j);
        rotateZ(right, j + 1, j);
    }

    /// First column of (M - a I)(M - b I), M = H T^-1 of the block, a and b the eigenvalues of M's last two rows and
    /// columns; up to a factor, and with H and T scaled to norms of about 1.
    void doubleShiftColumn(double (&v)[3]) const
    {
        const int l = last_, f = first_;
        const auto quotient = [&](int i, int j) { return scaleH_ * H_(i, j) / (scaleT_ * T_(j, j)); };
        const double a11 = quotient(l - 1, l - 1), a21 = quotient(l, l - 1), a12 = quotient(l - 1, l), a22 = quotient(l, l);
        const double u = T_(l - 1, l) / T_(l, l);
        const double b11 = quotient(f, f), b21 = quotient(f + 1, f), b12 = quotient(f, f + 1), b22 = quotient(f + 1, f + 1),
                     b32 = quotient(f + 2, f + 1);
        const double w = T_(f, f + 1) / T_(f + 1, f + 1);
        v[0] = (a11 - b11) * (a22 - b11) - a12 * a21 + a21 * u * b11 + (b12 - b11 * w) * b21;
        v[1] = ((b22 - b11) - b21 * w - (a11 - b11) - (a22 - b11) + a21 * u) * b21;
        v[2] = b32 * b21;
    }

    void doubleShiftSweep()
    {
        double v[3];
        doubleShiftColumn(v);
        for (int j = first_; j + 1 < last_; ++j) {
            Reflector left;
            if (j == first_) {
                left = reflect(v[0], v[1], v[2]);
            } else {
                double* x = &H_(j, j - 1);
                left = reflect(x[0], x[1], x[2]);
                x[1] = x[2] = 0.0;
            }
            for (int k = j; k <= high_; ++k) {
                left(H_(j, k), H_(j + 1, k), H_(j + 2, k));
                left(T_(j, k), T_(j + 1, k), T_(j + 2, k));
            }
            if (Q_.data)
                reflectColumns(Q_, left, j, 0, n_ - 1);

            // From the right a reflector that takes the first unit vector to x with rows j + 1 and j + 2 of T times x zero.
            double x[3];
            commonNullVector({T_(j + 1, j), T_(j + 1, j + 1), T_(j + 1, j + 2)},
                             {T_(j + 2, j), T_(j + 2, j + 1), T_(j + 2, j + 2)}, x);
            const Reflector right = reflect(x[0], x[1], x[2]);
            reflectColumns(H_, right, j, low_, std::min(j + 3, last_));
            reflectColumns(T_, right, j, low_, j + 2);
            if (Z_.data)
                reflectColumns(Z_, right, j, 0, n_ - 1);
            T_(j + 1, j) = T_(j + 2, j) = 0.0;
        }
        const int j = last_ - 1;
        const Rotation left = annihilate(H_(j, j - 1), H_(j + 1, j - 1));
        rotateRows(H_, left, j, j, high_);
        rotateRows(T_, left, j, j, high_);
        rotateQ(left, j);
        chaseTByColumns(j);
    }

    // ---- two rows with complex eigenvalues

    /// The block is 2 by 2 with a complex pair: T becomes diagonal and not negative there, and the pair is stored. If
    /// rounding makes the pair real, the iteration goes on.
    void splitOffPair()
    {
        const int i = last_ - 1, k = last_;
        double small, large, sr, cr, sl, cl;
        dlasv2_(&T_(i, i), &T_(i, k), &T_(k, k), &small, &large, &sr, &cr, &sl, &cl);
        if (large < 0.0) {
            cr = -cr;
            sr = -sr;
            large = -large;
            small = -small;
        }
        const Rotation left{cl, sl}, right{cr, sr};
        rotateRows(H_, left, i, i, high_);
        rotateColumns(H_, right, i, k, low_, k);
        rotateRows(T_, left, i, k + 1, high_);
        rotateColumns(T_, right, i, k, low_, i - 1);
        rotateQ(left, i);
        rotateZ(right, i, k);
        T_(i, i) = large;
        T_(i, k) = T_(k, i) = 0.0;
        T_(k, k) = small;
        if (small < 0.0) {
            negateColumn(k, low_);
            T_(k, k) = -small;
        }

        const Shift pair = shiftOfLastBlock();
        if (pair.wi == 0.0)
            return;
        storePair(pair);
        dropTail(first_ - 1);
    }

    /// With x the eigenvector of the first of the pair, |x| = 1, a unitary reduction to triangular form has the diagonal
    /// entries |T x| and det T / |T x| in the second matrix.
    void storePair(const Shift& pair) const
    {
        const int i = last_ - 1, k = last_;
        using Complex = std::complex<double>;
        const Complex w(pair.wr, pair.wi);
        const Complex a = pair.s * H_(i, i) - w * T_(i, i), b = pair.s * H_(i, k), c = pair.s * H_(k, i),
                      d = pair.s * H_(k, k) - w * T_(k, k);
        const bool firstRow = std::abs(a) + std::abs(b) > std::abs(c) + std::abs(d);
        const double p = std::abs(firstRow ? b : d), q = std::abs(firstRow ? a : c), length = std::hypot(p, q);
        const double beta = length > 0.0 ? std::hypot(T_(i, i) * (p / length), T_(k, k) * (q / length)) : T_(i, i);
        beta_[i] = beta;
        beta_[k] = beta > 0.0 ? T_(i, i) * (T_(k, k) / beta) : T_(i, i);
        alphar_[i] = pair.wr * beta_[i] / pair.s;
        alphai_[i] = pair.wi * beta_[i] / pair.s;
        alphar_[k] = pair.wr * beta_[k] / pair.s;
        alphai_[k] = -(pair.wi * beta_[k] / pair.s);
    }

    const int n_, ilo_, ihi_;
    const View H_, T_;
    View Q_, Z_; // no data: not wanted
    double *const alphar_, *const alphai_, *const beta_;
    const bool schur_;
    const double shiftScale_, safmin_, safmax_, ulp_;
    double smallH_, smallT_, scaleH_, scaleT_;
    int maxit_;

    int low_ = 0, high_ = 0;
    int first_ = 0, last_ = 0;
    int steps_ = 0;      ///< since the last split
    double shift_ = 0.0; ///< sum of exceptional shifts
};

/// INFO for the arguments that do not fit, 0 if all do.
int checked(const char* job, const char* compq, const char* compz, int n, int ilo, int ihi, int ldh, int ldt, int ldq,
            int ldz, int lwork)
{
    if (!isOption(job, "ES"))
        return -1;
    if (!isOption(compq, "NIV"))
        return -2;
    if (!isOption(compz, "NIV"))
        return -3;
    if (n < 0)
        return -4;
    if (ilo < 1)
        return -5;
    if (ihi > n || ihi < ilo - 1)
        return -6;
    if (ldh < n)
        return -8;
    if (ldt < n)
        return -10;
    if (ldq < 1 || (!isOption(compq, "N") && ldq < n))
        return -15;
    if (ldz < 1 || (!isOption(compz, "N") && ldz < n))
        return -17;
    return lwork < std::max(1, n) && lwork != workQuery ? -19 : 0;
}

/// The basis to accumulate in, set to the identity if it is to start so.
View basis(const char* comp, double* data, int ld, int n)
{
    if (isOption(comp, "N"))
        return {};
    const double zero = 0.0, one = 1.0;
    if (isOption(comp, "I"))
        dlaset_("F", &n, &n, &zero, &one, data, &ld, 1);
    return {data, ld};
}

} // namespace

extern "C" void dhgeqz_mod(const char* job, const char* compq, const char* compz, const int* n, const int* ilo,
                           const int* ihi, double* h, const int* ldh, double* t, const int* ldt, double* alphar,
                           double* alphai, double* beta, double* q, const int* ldq, double* z, const int* ldz, double* work,
                           const int* lwork, int* info, double shiftScale)
{
    *info = checked(job, compq, compz, *n, *ilo, *ihi, *ldh, *ldt, *ldq, *ldz, *lwork);
    if (*info != 0) {
        reportArgument("DHGEQZ", *info);
        return;
    }
    work[0] = std::max(1, *n);
    if (*lwork == workQuery || *n == 0)
        return;
    QZ iteration(*n, *ilo - 1, *ihi - 1, {h, *ldh}, {t, *ldt}, alphar, alphai, beta, isOption(job, "S"), shiftScale);
    iteration.accumulate(basis(compq, q, *ldq, *n), basis(compz, z, *ldz, *n));
    *info = iteration.run();
}
