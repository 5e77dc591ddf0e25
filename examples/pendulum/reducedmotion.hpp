// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

class Dae;

namespace examples {

using Values = std::map<std::string, double>;

/// A mechanical system as its equations are written down: infix text, "= 0", d(x,t) the time derivative of x.
///
/// Of the derivatives that constraints tie together those of the unknowns named first are computed, and those of the
/// unknowns named last are integrated: end with good generalised coordinates.
struct MotionText
{
    std::string name;
    std::vector<std::string> unknowns;
    std::vector<std::string> equations;
    Values parameters;
    Values start;       ///< values of what is integrated; first guesses of the others
    std::string energy; ///< total energy, by the names in the reduced equations
};

/// A system of index one at most, made from text by index reduction, with the numbers that belong to it.
///
/// Unknown by unknown, the highest derivative that the reduced equations hold is computed from them (Newton's method) and
/// those below it are integrated (classical Runge-Kutta). The constraints are among the equations solved, so they
/// hold to rounding at all times: nothing drifts off.
///
/// Raises qxbase::Exception from reading, reducing and evaluating; std::runtime_error if Newton's method does not converge.
class ReducedMotion
{
public:
    explicit ReducedMotion(const MotionText& text);
    ~ReducedMotion();

    /// The unknowns and equations before and after, as text.
    const std::string& getOriginal() const { return original_; }
    const std::string& getReduced() const { return reduced_; }
    /// Names of what is integrated and of what is computed; a derivative in time t has t appended for each order.
    const std::vector<std::string>& getStates() const { return states_; }
    const std::vector<std::string>& getComputed() const { return computed_; }

    double getTime() const { return time_; }
    /// The present value of any name.
    double getValue(const std::string& name) const { return values_.at(name); }
    double getEnergy() const;
    /// Largest residual of an equation at present.
    double getResidual() const;
    /// One step of the classical Runge-Kutta method, order 4.
    void step(double h);

private:
    struct Equation
    {
        qx::Formula formula;
        std::vector<std::size_t> unknowns; ///< positions in computed_ of those that it depends on
    };

    void readStructure(const Dae& dae);
    void makeFormulas(const Dae& dae, const std::string& energy);
    /// Solves for what is computed at the present time and states.
    void solve();
    std::vector<double> rates();
    qx::Points point() const;
    double evaluate(qx::Formula formula) const;

    std::string original_, reduced_;
    std::vector<std::string> states_, rates_, computed_; // rates_[i] is the name of the derivative of states_[i]
    std::vector<Equation> equations_;
    qx::Formula energy_;
    qx::Program program_;
    Values values_;
    double time_ = 0.0;
};

/// A pendulum of length l in Cartesian coordinates, its rod a constraint; it must stay below its pivot.
MotionText pendulum(double startAngle);
/// Crank, connecting rod and slider in the horizontal plane, closed by two constraints; no forces but theirs.
MotionText sliderCrank(double startRate);

} // namespace examples
