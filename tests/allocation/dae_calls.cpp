// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "tests/dae/systems.hpp"

namespace qxtest {

namespace {

std::shared_ptr<Dae> simple() { return makeDae({"x", "y", "z"}, {"x-y", "d(y,t)-2*x*z", "z-3"}); }
std::shared_ptr<Dae> rod() { return makeDae(pendulum()); }

void show(std::ostream& out, const Dae& dae) { dae.log(out); }

} // namespace

std::vector<Call> daeCalls()
{
    return Module("dae", "bad_alloc")
        .add("addVar", rod, [](Dae& d) { d.addVar("a_name_longer_than_what_a_string_keeps"); }, show)
        .add("addEq", rod, [](Dae& d) { d.addEq(equationText("x*d(y,t)-sin(u)*x")); }, show)
        .add("simplify", simple, [](Dae& d) { d.simplify(); }, show)
        .add("pantelides", rod, [](Dae& d) { d.pantelides(); }, show)
        .add("reduceIndex", rod, [](Dae& d) { d.reduceIndex(); }, show)
        .add("getEq", rod, [](Dae& d) { d.getEq(0); }, show)
        .calls();
}

} // namespace qxtest
