// SPDX-License-Identifier: LicenseRef-qxkernel
#include "solution.hpp"

#include "constraints.hpp"
#include "formulas/explain.hpp"

#include "constrained.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <type_traits>

namespace examples {
namespace {

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

template <class T>
std::vector<T> solveSparse(qxutil::RunInfo& runInfo, const Sparse& A, const std::vector<T>& b)
{
    try {
        return qx::Factor(A, {.run = &runInfo}).solve(b);
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "Singular_matrix" || e.getId() == "Matrix_is_zero")
            refuseSingular();
        throw;
    }
}

// All u that obey the conditions. Conditions that contradict each other are named by what they came from.
template <class T>
qx::Admissible<T> obey(const Constraints<T>& c, const NamedMesh& mesh, qxutil::RunInfo& runInfo)
{
    try {
        return qx::admissible(c.N, c.value, {.run = &runInfo});
    } catch (const qxbase::Exception& e) {
        if (e.getId() != "Contradicting_constraints")
            throw;
        const auto words = [&](std::size_t condition) {
            return "condition " + std::to_string(condition + 1) + ", " + c.describe(condition, mesh);
        };
        constexpr std::size_t shown = 4;
        std::string message = words(std::stoul(argumentOf(e, e.getId(), "Constraint"))) + ", contradicts";
        std::istringstream others(argumentOf(e, e.getId(), "With"));
        const std::size_t all = std::stoul(argumentOf(e, e.getId(), "Others"));
        std::size_t other = 0;
        for (std::size_t n = 0; n < shown && others >> other; ++n)
            message += "\n  " + words(other);
        if (all > shown)
            message += "\n  and " + std::to_string(all - shown) + " more";
        throw std::invalid_argument(message);
    }
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
            add(F, 1.0, qx::multiply(J_, u));
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
    qx::Admissible<T> admissible = obey(constraints, mesh, runInfo);
    const Sparse& null = admissible.space.null;
    std::vector<T> u = std::move(admissible.particular);

    phases.start("assembly");
    Residual<T> residual(assembly, nodes);
    std::vector<T> r = qx::multiply(null, residual.at(u), ConjTrans);

    Solution<T> s;
    s.constraints = admissible.space.complement.getN();
    s.unknowns = null.getN();
    const double start = norm(r);
    s.residual = start > 0.0 ? 1.0 : 0.0;
    if (start == 0.0 && s.unknowns > 0) // nothing to do, but is this the only solution?
        solveSparse(runInfo, transpose(null, ConjTrans) * (residual.J() * null), std::vector<T>(s.unknowns, T(1.0)));
    while (s.residual > options.tolerance) {
        if (s.steps == (assembly.isLinear() ? 2 : options.maxSteps))
            throw std::invalid_argument("Newton's method does not converge: relative residual " +
                                        std::to_string(s.residual) + " after " + std::to_string(s.steps) + " steps");
        phases.start("reduction");
        const Sparse K = transpose(null, ConjTrans) * (residual.J() * null);
        s.entries = K.getNnz();
        phases.start("factorise, solve");
        const std::vector<T> step = qx::multiply(null, solveSparse(runInfo, K, r));

        phases.start("assembly");
        double length = 1.0;
        double reached = INFINITY;
        for (int halvings = 0; halvings < 12; ++halvings, length *= 0.5) {
            std::vector<T> trial = u;
            add(trial, -length, step);
            r = qx::multiply(null, residual.at(trial), ConjTrans);
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
