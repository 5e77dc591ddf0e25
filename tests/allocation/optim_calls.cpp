// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "optimstate.hpp"
#include "prop.hpp"

namespace qxtest {

namespace {

const std::string np = "Out of memory in optimization", qp = "Out_of_memory_in_optimization";

std::shared_ptr<OptimState> state(bool nonlinear)
{
    auto s = std::make_shared<OptimState>(600, 500, 500, nonlinear, 3, 4);
    s->getIw()[7] = 5;
    s->getRw()[9] = 2.5;
    s->getCw()[11] = 'q';
    return s;
}

void show(std::ostream& out, OptimState& s)
{
    out << s.getCwBytes() << ' ' << s.getIwLength() << ' ' << s.getRwLength() << ' ' << s.getIw()[7] << ' ' << s.getRw()[9] << s.getCw()[11];
}

std::shared_ptr<qxbase::Prop> options()
{
    qxoptim::initializeOptim();
    auto p = std::make_shared<qxbase::Prop>();
    p->setDouble("elasticw", 1e-5);
    return p;
}

void showProp(std::ostream& out, const qxbase::Prop& prop) { showAll(out, prop.getKeys()); }

} // namespace

std::vector<Call> optimCalls()
{
    Module optim("optim", np);
    for (const bool nonlinear : {true, false}) {
        const std::string name = nonlinear ? "nonlinear" : "quadratic", id = nonlinear ? np : qp;
        const auto make = [nonlinear] { return state(nonlinear); };
        optim.add("reallocate " + name, make, [](OptimState& s) { s.reallocate(700, 800, 900); }, show)
            .failingBy(id)
            .add("reallocateCw " + name, make, [](OptimState& s) { s.reallocateCw(1700); }, show)
            .failingBy(id)
            .add("reallocateIw " + name, make, [](OptimState& s) { s.reallocateIw(1700); }, show)
            .failingBy(id)
            .add("reallocateRw " + name, make, [](OptimState& s) { s.reallocateRw(1700); }, show)
            .failingBy(id)
            .add("reserve " + name, make, [](OptimState& s) { s.reserve(1000, 2000, 3000); }, show)
            .failingBy(id);
    }
    optim.add("checkCommon", options, [](qxbase::Prop& p) { OptimState::checkCommon(p); }, showProp)
        .failingBy("bad_alloc")
        .add("checkNP", options, [](qxbase::Prop& p) { OptimState::checkNP(p); }, showProp)
        .failingBy("bad_alloc")
        .add("checkQP", options, [](qxbase::Prop& p) { OptimState::checkQP(p); }, showProp)
        .failingBy("bad_alloc");
    return optim.calls();
}

} // namespace qxtest
