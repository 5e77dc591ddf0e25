// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "dae.hpp"
#include "exprimpl.hpp"

#include <memory>
#include <string>
#include <vector>

/// Systems that several tests use, as a user would write them: d(x,t) is the derivative of x, each equation is "= 0".
namespace qxtest {

/// Prefix text of an infix equation; a call d(...) with two arguments becomes a derivative.
inline std::string equationText(const std::string& infix)
{
    const std::string call = "() d 2 ";
    std::string text = qxInfixToPrefix(infix);
    for (std::size_t i = text.find(call); i != std::string::npos; i = text.find(call, i))
        text.replace(i, call.size(), "(DIFF) ");
    return text;
}

struct System
{
    std::string name;
    std::vector<std::string> unknowns;
    std::vector<std::string> equations;
    std::vector<int> differentiations; ///< how often each equation must be differentiated
};

inline std::unique_ptr<Dae> makeDae(const std::vector<std::string>& unknowns,
                                    const std::vector<std::string>& equations)
{
    auto dae = std::make_unique<Dae>("t");
    for (const std::string& name : unknowns)
        dae->addVar(name);
    for (const std::string& text : equations)
        dae->addEq(equationText(text));
    return dae;
}

inline std::unique_ptr<Dae> makeDae(const System& system) { return makeDae(system.unknowns, system.equations); }

inline System pendulum()
{
    return {"Pendulum",
            {"x", "y", "u", "v", "lam"},
            {"d(x,t)-u", "d(y,t)-v", "m*d(u,t)+lam*x", "m*d(v,t)+lam*y+m*g", "x^2+y^2-l^2"},
            {1, 1, 0, 0, 2}};
}

/// Numbers of differentiations: by hand, from the smallest offsets c, d with d_j - c_i >= order of variable j in
/// equation i and equality along a transversal (Pryce, BIT 41 (2001) 364-394).
inline std::vector<System> systems()
{
    return {
        pendulum(),
        {"DoublePendulum",
         {"x1", "y1", "x2", "y2", "p", "q"},
         {"m1*d(d(x1,t),t)+p*x1-q*(x2-x1)", "m1*d(d(y1,t),t)+p*y1-q*(y2-y1)+m1*g", "m2*d(d(x2,t),t)+q*(x2-x1)",
          "m2*d(d(y2,t),t)+q*(y2-y1)+m2*g", "x1^2+y1^2-l1^2", "(x2-x1)^2+(y2-y1)^2-l2^2"},
         {0, 0, 0, 0, 2, 2}},
        {"RcLowPass",
         {"vr", "vc", "i"},
         {"vr-R*i", "C*d(vc,t)-i", "vr+vc-sin(w*t)"},
         {0, 0, 0}},
        {"SeriesRlc",
         {"i", "vr", "vl", "vc"},
         {"vr-R*i", "L*d(i,t)-vl", "C*d(vc,t)-i", "vr+vl+vc-cos(w*t)"},
         {0, 0, 0, 0}},
        {"CapacitorAcrossSource", {"v", "i"}, {"C*d(v,t)-i", "v-sin(w*t)"}, {0, 1}},
        {"InductorCutSet", {"i1", "i2", "v"}, {"L1*d(i1,t)-v", "L2*d(i2,t)+v", "i1+i2-exp(-t)"}, {0, 0, 1}},
        // Concentration prescribed, coolant temperature unknown (Pantelides 1988).
        {"ChemicalReactor",
         {"c", "T", "r", "Tc"},
         {"d(c,t)-k1*(c0-c)+r", "d(T,t)-k1*(T0-T)-k2*r+k3*(T-Tc)", "r-k4*exp(-k5/T)*c", "c-exp(-t)"},
         {1, 0, 1, 2}},
        {"SliderCrank",
         {"s", "psi", "phi", "p", "q"},
         {"m*d(d(s,t),t)-p", "J2*d(d(psi,t),t)-p*L*sin(psi)+q*L*cos(psi)",
          "J1*d(d(phi,t),t)-p*r*sin(phi)+q*r*cos(phi)-M",
          "r*cos(phi)+L*cos(psi)-s", "r*sin(phi)+L*sin(psi)"},
         {0, 0, 0, 2, 2}},
        {"PrescribedChain",
         {"x1", "x2", "x3", "x4"},
         {"d(x1,t)-x2", "d(x2,t)-x3", "d(x3,t)-x4", "x1-sin(t)"},
         {2, 1, 0, 3}},
        // The derivative of a product hides those of its factors.
        {"HiddenDerivative", {"x", "y", "z"}, {"d(x*y,t)-z", "d(y,t)+y-x", "x-2-cos(t)"}, {0, 0, 1}},
        {"FourthOrder", {"x", "f"}, {"d(d(d(d(x,t),t),t),t)-f/x", "x-3-sin(t)"}, {0, 4}},
    };
}

} // namespace qxtest
