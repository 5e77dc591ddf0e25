// SPDX-License-Identifier: LicenseRef-qxkernel
#include "guarded_detail.hpp"
#include "program_detail.hpp"

#include "evalnodes.hpp"
#include "exprcomp.hpp"

namespace qx {

/// Feeds the compiler. Variables are the inputs; an output keeps the id that the graph gave it.
std::vector<std::string> CompiledFormulas::feed(ExprComp& compiler, std::span<const Formula> formulas,
                                                std::span<const std::string> gradient) const
{
    DefIds ids;
    int nextId = 0;
    for (const std::string& name : names_.variables) {
        ids.insert(name, nextId);
        compiler.setName(nextId, name);
        compiler.addInput(nextId++);
    }
    std::vector<std::string> outputs;
    const auto add = [&](const std::string& name, const EvalTreePtr& tree) {
        const std::lock_guard hold(mutex_);
        const int id = tree->getRoot(host_)->createDefs(compiler, ids, nextId, host_);
        compiler.addOutput(id);
        outputs.push_back(name);
    };
    for (const Formula& formula : formulas) {
        const std::string text = item(formula).tree->getExpr();
        add(text, item(formula).tree);
        for (const std::string& name : gradient)
            add(std::string("d(").append(text).append(1, ',').append(name).append(1, ')'), derivative(formula, variable(name)).tree);
    }
    return outputs;
}

std::vector<std::string> Program::feed(ExprComp& compiler, std::span<const Formula> formulas,
                                       std::span<const std::string> gradient) const
{
    return guarded([&] { return impl_->feed(compiler, formulas, gradient); }, "Out_of_memory_evaluating_formulas");
}

} // namespace qx
