// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"
#include "formulas/host_detail.hpp"

#include <memory>
#include <mutex>
#include <set>

class EvalTreeSet;

namespace qx {

/// What the user gave.
struct FormulaText
{
    unsigned long owner = 0;
    std::vector<std::string> variables;
    std::vector<std::pair<std::string, std::string>> definitions;
    std::vector<std::pair<std::string, std::shared_ptr<const Function>>> functions;
    std::vector<std::pair<std::string, FunObjPtr>> tables;
    std::vector<std::string> formulas;
    std::set<std::string> names;         ///< in use for variables and definitions
    std::set<std::string> functionNames; ///< in use for functions of the user's own and for tables
};

/// A tree with the variables that its value can depend on.
struct Item
{
    EvalTreePtr tree;
    std::vector<std::size_t> variables;
};

/// One of the formulas that are evaluated together.
struct Job
{
    const Item* item;
    Formula formula;
    Target target;
};

/// A compiled set of formulas. All that changes later is behind the mutex: derivatives, sets of formulas evaluated together
/// and workers that rest between evaluations.
class CompiledFormulas
{
public:
    explicit CompiledFormulas(const FormulaText& text);

    Failures evaluate(const Points& points, std::span<const Output> outputs, const Options& options) const;
    Failures gradient(const Points& points, Formula formula, const Target& value, std::span<const Derivative> by,
                      const Options& options) const;
    bool dependsOn(Formula formula, const std::string& variable) const;
    bool isNonlinearIn(Formula formula, const std::vector<std::string>& variables) const;
    std::string text(Formula formula) const;
    std::string derivativeText(Formula formula, const std::string& variable) const;
    std::vector<std::string> feed(ExprComp& compiler, std::span<const Formula> formulas,
                                  std::span<const std::string> gradient) const;
    const std::vector<std::string>& variables() const { return names_.variables; }

    /// A worker for this thread; give() takes it back for the next evaluation.
    std::unique_ptr<Worker> take(std::size_t block) const;
    void give(std::unique_ptr<Worker> worker) const;

private:
    class Compiler;

    const Item& item(Formula formula) const;
    std::size_t variable(const std::string& name) const;
    const Item& derivative(Formula formula, std::size_t variable) const;
    std::shared_ptr<EvalTreeSet> together(const std::vector<Job>& jobs) const;
    Columns bind(const Points& points) const;
    Failures run(const Points& points, const std::vector<Job>& jobs, const Options& options) const;

    const unsigned long owner_;
    Names names_;
    NodeMakerPtr maker_;
    boost::shared_ptr<Host> host_; ///< of compilation and derivatives
    std::vector<Item> items_;

    mutable std::mutex mutex_;
    mutable std::map<std::pair<std::size_t, std::size_t>, Item> derivatives_;
    mutable std::map<std::vector<unsigned long>, std::shared_ptr<EvalTreeSet>> sets_;
    mutable std::vector<std::unique_ptr<Worker>> resting_;
};

} // namespace qx
