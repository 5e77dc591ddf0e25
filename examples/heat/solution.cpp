#include "solution.hpp"

#include "constraints.hpp"

#include "qxexception.hpp"
#include "qxnull.hpp"
#include "umfpack.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <type_traits>

namespace examples {
namespace {

template <class T>
Matrix<1> toMatrix(const std::vector<T>& v)
{
    Matrix<1> m(v.size(), std::is_same_v<T, double>);
    for (std::size_t i = 0; i < v.size(); ++i)
        m.set(i, v[i]);
    return m;
}

template <class T>
std::vector<T> toVector(const Matrix<1>& m)
{
    std::vector<T> v(m.size());
    for (std::size_t i = 0; i < v.size(); ++i)
        if constexpr (std::is_same_v<T, double>)
            v[i] = m[i].real();
        else
            v[i] = m[i];
    return v;
}

template <class T>
std::vector<T> product(const Sparse& A, const std::vector<T>& x, Trans_t trans)
{
    return toVector<T>(AMulx(A, toMatrix(x), trans));
}

template <class T>
double norm(const std::vector<T>& v)
{
    double sum = 0.0;
    for (const T& x : v)
        sum += std::norm(x);
    return std::sqrt(sum);
}

template <class T>
void add(std::vector<T>& y, double a, const std::vector<T>& x)
{
    for (std::size_t i = 0; i < y.size(); ++i)
        y[i] += a * x[i];
}

[[noreturn]] void refuseSingular()
{
    throw std::invalid_argument("the matrix is singular: the problem has no solution, or more than one. Is u, or its mean, "
                                "given anywhere?");
}

// A solution that a second look at the residual would change by this much has no digits: the matrix is singular but for
// rounding.
constexpr double kNoDigits = 1e-2;

template <class T>
std::vector<T> solveSparse(qxutil::RunInfo& runInfo, Sparse A, const std::vector<T>& b)
{
    Umfpack solver(runInfo);
    try {
        solver.init(A, true, false, false, true);
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Singular_matrix" || e.getId() == "Matrix_is_zero")
            refuseSingular();
        throw;
    }
    const Matrix<1> rhs = toMatrix(b);
    Matrix<1> x;
    solver.solve(rhs, x);
    double residual = 0.0;
    double error = 0.0;
    solver.checkTolerances(x, rhs, INFINITY, INFINITY, residual, error);
    if (error > kNoDigits)
        refuseSingular();
    return toVector<T>(x);
}

// Refuses conditions that contradict each other: each vector l with N l = 0 is a sum of conditions that says 0 = l^H g.
template <class T>
void refuseContradictions(const Constraints<T>& c, const NamedMesh& mesh, qxutil::RunInfo& runInfo)
{
    const Sparse NH = transpose(c.N, ConjTrans);
    Sparse sums, unused;
    qxNull(runInfo, NH, Sparse(), Sparse(), true, sums, false, unused, false, unused, unused, false, unused, false, unused,
           false, NullFunSparse, false);
    const unsigned long *start = sums.getColPtr(), *conditions = sums.getRow();
    double largest = 0.0;
    for (const T& g : c.value)
        largest = std::max(largest, std::abs(g));
    for (unsigned long j = 0; j < sums.getN(); ++j) {
        T total(0.0);
        double size = 0.0;
        for (unsigned long k = start[j]; k < start[j + 1]; ++k) {
            total += sums.getDoubleVal()[k] * c.value[conditions[k]];
            size += std::abs(sums.getDoubleVal()[k]) * largest;
        }
        if (std::abs(total) <= 1e-9 * size)
            continue;
        constexpr unsigned long shown = 4;
        const unsigned long others = start[j + 1] - start[j] - 1;
        const auto words = [&](unsigned long condition) {
            return "condition " + std::to_string(condition + 1) + ", " + c.describe(condition, mesh);
        };
        std::string message = words(conditions[start[j] + others]) + ", contradicts";
        for (unsigned long k = 0; k < std::min(shown, others); ++k)
            message += "\n  " + words(conditions[start[j] + k]);
        if (others > shown)
            message += "\n  and " + std::to_string(others - shown) + " more";
        throw std::invalid_argument(message);
    }
}

// u = Compl y that obeys the conditions, y from Range^H y = g; with repeated conditions from Range Range^H y = Range g.
template <class T>
std::vector<T> particular(const Constraints<T>& c, const Sparse& compl_, const Sparse& range, const NamedMesh& mesh,
                          qxutil::RunInfo& runInfo)
{
    if (compl_.getN() == 0)
        return std::vector<T>(mesh.points.size(), T(0.0));
    const Sparse rangeH = transpose(range, ConjTrans);
    if (compl_.getN() == c.value.size())
        return product(compl_, solveSparse(runInfo, rangeH, c.value), NoTrans);
    refuseContradictions(c, mesh, runInfo);
    return product(compl_, solveSparse(runInfo, range * rangeH, product(range, c.value, NoTrans)), NoTrans);
}

// The residual as a function of u: affine problems are assembled once.
template <class T>
class Residual
{
public:
    Residual(const Assembly& assembly, std::size_t nodes) : assembly_(assembly), atZero_(nodes, T(0.0))
    {
        if (assembly.isLinear())
            assembly.assemble(std::vector<double>(nodes, 0.0), J_, atZero_);
    }

    std::vector<T> at(const std::vector<T>& u)
    {
        std::vector<T> F;
        if (assembly_.isLinear()) {
            F = atZero_;
            add(F, 1.0, product(J_, u, NoTrans));
        } else if constexpr (std::is_same_v<T, double>) {
            assembly_.assemble(u, J_, F);
        }
        return F;
    }
    /// At the last u.
    const Sparse& J() const { return J_; }

private:
    const Assembly& assembly_;
    std::vector<T> atZero_;
    Sparse J_;
};

} // namespace

double secondsNow()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Phases::start(const std::string& name)
{
    onStart_(name);
    const double t = secondsNow();
    if (running_)
        seconds_[current_].second += t - since_;
    since_ = t;
    running_ = !name.empty();
    for (current_ = 0; current_ < seconds_.size() && seconds_[current_].first != name; ++current_) {
    }
    if (running_ && current_ == seconds_.size())
        seconds_.emplace_back(name, 0.0);
}

template <class T>
Solution<T> solve(const NamedMesh& mesh, const HeatModel& model, const SolutionOptions& options,
                  qxutil::RunInfo& runInfo, Phases& phases)
{
    const std::size_t nodes = mesh.points.size();
    phases.start("read formulas");
    const Assembly assembly(mesh, model, options.effort);
    if (!std::is_same_v<T, double> && !assembly.isLinear())
        throw std::invalid_argument("complex problems must be linear in u");

    phases.start("constraints");
    const Constraints<T> constraints = constraintsOf<T>(mesh, model, assembly);
    Sparse null, compl_, range, unused;
    qxNull(runInfo, constraints.N, Sparse(), Sparse(), true, null, true, compl_, true, range, unused, false, unused, false,
           unused, false, NullFunSparse, false);
    std::vector<T> u = particular(constraints, compl_, range, mesh, runInfo);

    phases.start("assembly");
    Residual<T> residual(assembly, nodes);
    std::vector<T> r = product(null, residual.at(u), ConjTrans);

    Solution<T> s;
    s.constraints = compl_.getN();
    s.unknowns = null.getN();
    const double start = norm(r);
    s.residual = start > 0.0 ? 1.0 : 0.0;
    while (s.residual > options.tolerance) {
        if (s.steps == (assembly.isLinear() ? 2 : options.maxSteps))
            throw std::invalid_argument("Newton's method does not converge: relative residual " +
                                        std::to_string(s.residual) + " after " + std::to_string(s.steps) + " steps");
        phases.start("reduction");
        const Sparse K = transpose(null, ConjTrans) * (residual.J() * null);
        s.entries = K.getNnz();
        phases.start("factorise, solve");
        const std::vector<T> step = product(null, solveSparse(runInfo, K, r), NoTrans);

        phases.start("assembly");
        double length = 1.0;
        double reached = INFINITY;
        for (int halvings = 0; halvings < 12; ++halvings, length *= 0.5) {
            std::vector<T> trial = u;
            add(trial, -length, step);
            r = product(null, residual.at(trial), ConjTrans);
            reached = norm(r);
            if (reached < start * s.residual || assembly.isLinear()) {
                u = std::move(trial);
                break;
            }
        }
        if (!std::isfinite(reached) || (reached >= start * s.residual && !assembly.isLinear()))
            throw std::invalid_argument("Newton's method does not converge: no step reduces the residual");
        s.residual = reached / start;
        ++s.steps;
    }
    phases.start("");
    s.u = std::move(u);
    return s;
}

template Solution<double> solve(const NamedMesh&, const HeatModel&, const SolutionOptions&, qxutil::RunInfo&, Phases&);
template Solution<std::complex<double>> solve(const NamedMesh&, const HeatModel&, const SolutionOptions&,
                                              qxutil::RunInfo&, Phases&);

} // namespace examples
