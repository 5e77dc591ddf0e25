// SPDX-License-Identifier: LicenseRef-qxkernel
#include "program_detail.hpp"

#include "base/nearestname_detail.hpp"
#include "eval/treebuilder_detail.hpp"
#include "evalnodes.hpp"
#include "evaltreeset.hpp"
#include "evaluation_detail.hpp"
#include "guarded_detail.hpp"
#include "nodemaker.hpp"
#include "ownfunction_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cmath>

namespace qx {

namespace {

constexpr std::size_t mostResting = 64, mostSets = 64;

/// Names below a node, sorted.
std::vector<std::string> namesBelow(const EvalNodePtr& node, const VarEvaluatorPtr& evaluator)
{
    NodeIdSet seen;
    NameSet names;
    node->gatherBVars(evaluator, seen, names);
    std::vector<std::string> sorted;
    for (const auto& entry : names)
        sorted.push_back(entry.key);
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

/// Runs work; what it raises gains a last entry.
template <class Work>
void within(const char* id, const qxbase::ExceptionArgs& args, const Work& work)
{
    try {
        work();
    } catch (qxbase::Exception& e) {
        e.add("formulas", __LINE__, id, args);
        throw;
    }
}

} // namespace

// Compilation --------------------------------------------------------------------------------------------------------

class CompiledFormulas::Compiler
{
public:
    Compiler(CompiledFormulas& program, const FormulaText& text)
        : program_(program), names_(program.names_), text_(text),
          plain_(boost::make_shared<PlainHost>(names_, program.maker_))
    {
    }

    void run()
    {
        addConstants();
        addFunctions();
        for (const auto& [name, expression] : text_.definitions)
            names_.definitions[name] = boost::make_shared<EvalTree>(expression, false);
        for (const auto& definition : text_.definitions)
            readDefinition(definition.first, definition.second);
        for (const auto& definition : text_.definitions)
            checkCircle(definition.first);
        for (const auto& [name, function] : text_.functions)
            checkDerivatives(name, *function);
        for (const std::string& expression : text_.formulas)
            addFormula(expression);
    }

private:
    void addConstants()
    {
        NodeMaker& maker = *program_.maker_;
        const auto add = [&](const char* name, const EvalNodePtr& node) {
            if (text_.names.count(name) == 0)
                names_.definitions[name] = boost::make_shared<EvalTree>(node);
        };
        add("pi", maker.makeConstNode(M_PI));
        add("i", maker.makeConstNode(std::complex<double>(0.0, 1.0)));
    }

    void addFunctions()
    {
        names_.functions = boost::make_shared<FunTable>(qxeval::standardFunctions());
        for (const auto& [name, function] : text_.functions)
            (*names_.functions)[name] = boost::make_shared<OwnFunction>(name, function, names_.functions);
        for (const auto& [name, table] : text_.tables)
            (*names_.functions)[name] = table;
    }

    void requireKnown(const std::vector<std::string>& names) const
    {
        for (const std::string& name : names)
            if (names_.indexOfVariable.count(name) == 0 && names_.definitions.count(name) == 0)
                QX_RAISE("formulas", "Unknown_variable_name", qxbase::unknownName(name, names_.valueNames()));
    }

    void readDefinition(const std::string& name, const std::string& expression)
    {
        within("In_definition", {{"Name", name}, {"Expression", expression}}, [&] {
            std::vector<std::string>& used = uses_[name];
            used = namesBelow(names_.definitions[name]->getRoot(program_.host_), plain_);
            requireKnown(used);
        });
    }

    /// Walks the definitions below one, depth first, with an explicit stack. A definition that is met again while it is
    /// still open closes a circle.
    void checkCircle(const std::string& start)
    {
        struct Open
        {
            const std::string* name;
            std::size_t next;
        };
        if (state_.count(start) != 0)
            return;
        std::vector<Open> path{{&start, 0}};
        state_[start] = true;
        while (!path.empty()) {
            Open& top = path.back();
            const std::vector<std::string>& used = uses_[*top.name];
            if (top.next == used.size()) {
                state_[*top.name] = false;
                path.pop_back();
                continue;
            }
            const std::string& name = used[top.next++];
            const auto seen = state_.find(name);
            if (seen == state_.end()) {
                state_[name] = true;
                path.push_back({&name, 0});
            } else if (seen->second) {
                raiseCircle(name, path);
            }
        }
    }

    template <class Path>
    [[noreturn]] static void raiseCircle(const std::string& name, const Path& path)
    {
        const auto first = std::find_if(path.begin(), path.end(), [&](const auto& o) { return *o.name == name; });
        std::string circle;
        for (auto o = first; o != path.end(); ++o)
            circle += *o->name + " -> ";
        QX_RAISE("formulas", "circvar", qxbase::ExceptionArgs{{"var", name}, {"Circle", circle + name}});
    }

    /// Derivatives are read anew at each use; here only to find what is wrong with them.
    void checkDerivatives(const std::string& name, const Function& function)
    {
        for (const std::string& expression : function.derivatives)
            within("In_derivative", {{"Name", name}, {"Expression", expression}}, [&] {
                qxeval::BoundNames bound;
                for (const std::string& p : function.parameters)
                    bound.emplace(p, program_.maker_->makeUnitNode());
                requireKnown(namesBelow(qxeval::buildNodes(expression, program_.host_, bound), plain_));
            });
    }

    void addFormula(const std::string& expression)
    {
        within("In_formula", {{"Expression", expression}}, [&] {
            Item item;
            item.tree = boost::make_shared<EvalTree>(expression, false);
            const std::vector<std::string> names = namesBelow(item.tree->getRoot(program_.host_), program_.host_);
            requireKnown(names);
            for (const std::string& name : names)
                item.variables.push_back(names_.indexOfVariable.at(name));
            program_.items_.push_back(std::move(item));
        });
    }

    CompiledFormulas& program_;
    Names& names_;
    const FormulaText& text_;
    const VarEvaluatorPtr plain_;
    std::unordered_map<std::string, std::vector<std::string>> uses_; ///< names that stand in a definition
    std::unordered_map<std::string, bool> state_;                    ///< true while a definition is open, then false
};

CompiledFormulas::CompiledFormulas(const FormulaText& text) : owner_(text.owner), maker_(boost::make_shared<NodeMaker>())
{
    names_.variables = text.variables;
    for (std::size_t k = 0; k < text.variables.size(); ++k)
        names_.indexOfVariable[text.variables[k]] = k;
    host_ = boost::make_shared<Host>(names_, maker_);
    Compiler(*this, text).run();
}

// Derivatives and dependence -----------------------------------------------------------------------------------------

const Item& CompiledFormulas::item(Formula formula) const
{
    if (formula.owner_ != owner_ || formula.index_ >= items_.size())
        QX_RAISE("formulas", "Unknown_formula");
    return items_[formula.index_];
}

std::size_t CompiledFormulas::variable(const std::string& name) const
{
    const auto found = names_.indexOfVariable.find(name);
    if (found == names_.indexOfVariable.end())
        QX_RAISE("formulas", "Unknown_variable_name", qxbase::unknownName(name, names_.variables));
    return found->second;
}

const Item& CompiledFormulas::derivative(Formula formula, std::size_t variable) const
{
    const Item& value = item(formula);
    const std::lock_guard hold(mutex_);
    const auto found = derivatives_.find({formula.index_, variable});
    if (found != derivatives_.end())
        return found->second;
    Item made{value.tree->diff(names_.variables[variable], host_), value.variables};
    return derivatives_.emplace(std::pair(formula.index_, variable), std::move(made)).first->second;
}

bool CompiledFormulas::dependsOn(Formula formula, const std::string& name) const
{
    const Item& value = item(formula);
    if (std::count(value.variables.begin(), value.variables.end(), variable(name)) == 0)
        return false;
    return !derivative(formula, variable(name)).tree->getRoot(host_)->isZero();
}

bool CompiledFormulas::isNonlinearIn(Formula formula, const std::vector<std::string>& variables) const
{
    const Item& value = item(formula);
    for (const std::string& name : variables)
        variable(name);
    const std::lock_guard hold(mutex_);
    return !variables.empty() && value.tree->jacDepends(variables, host_).isSolDepAll();
}

std::string CompiledFormulas::text(Formula formula) const { return item(formula).tree->getExpr(); }

std::string CompiledFormulas::derivativeText(Formula formula, const std::string& name) const
{
    const EvalTreePtr tree = derivative(formula, variable(name)).tree;
    const std::lock_guard hold(mutex_);
    return EvalTree(tree->getRoot(host_)).getExpr();
}

// Evaluation ---------------------------------------------------------------------------------------------------------

std::unique_ptr<Worker> CompiledFormulas::take(std::size_t block) const
{
    {
        const std::lock_guard hold(mutex_);
        const auto mine = std::find_if(resting_.begin(), resting_.end(), [&](const auto& w) { return w->fits(block); });
        if (mine != resting_.end()) {
            std::unique_ptr<Worker> worker = std::move(*mine);
            resting_.erase(mine);
            return worker;
        }
    }
    return std::make_unique<Worker>(names_, maker_, block);
}

void CompiledFormulas::give(std::unique_ptr<Worker> worker) const
{
    worker->rest();
    std::unique_ptr<Worker> oldest; // ends after the lock does
    const std::lock_guard hold(mutex_);
    if (resting_.size() == mostResting) {
        oldest = std::move(resting_.front());
        resting_.erase(resting_.begin());
    }
    resting_.push_back(std::move(worker));
}

Columns CompiledFormulas::bind(const Points& points) const
{
    Columns columns(names_.variables.size());
    for (const PointColumn& c : points.columns_)
        columns[variable(c.name)] = &c;
    return columns;
}

std::shared_ptr<EvalTreeSet> CompiledFormulas::together(const std::vector<Job>& jobs) const
{
    if (jobs.size() < 2)
        return {};
    std::vector<unsigned long> ids;
    std::vector<EvalTreePtr> trees;
    for (const Job& job : jobs) {
        ids.push_back(job.item->tree->getId());
        trees.push_back(job.item->tree);
    }
    const std::lock_guard hold(mutex_);
    if (sets_.size() == mostSets)
        sets_.clear();
    std::shared_ptr<EvalTreeSet>& set = sets_[ids];
    if (!set)
        set = std::make_shared<EvalTreeSet>(std::move(trees));
    return set;
}

Failures CompiledFormulas::run(const Points& points, const std::vector<Job>& jobs, const Options& options) const
{
    const auto invalid = [](const char* name) { QX_RAISE("formulas", "Invalid_option", "Option", name); };
    if (options.threads < 0)
        invalid("threads");
    if (options.block == 0)
        invalid("block");
    const Columns columns = bind(points);
    for (const Job& job : jobs) {
        if (job.target.size() != points.size())
            QX_RAISE("formulas", "Wrong_number_of_values",
                     qxbase::ExceptionArgs{{"Name", job.item->tree->getExpr()},
                                           {"Expected", std::to_string(points.size())},
                                           {"Found", std::to_string(job.target.size())}});
        for (const std::size_t v : job.item->variables)
            if (columns[v] == nullptr)
                QX_RAISE("formulas", "Variable_without_values", "Name", names_.variables[v]);
    }
    const std::shared_ptr<EvalTreeSet> set = together(jobs);
    return Evaluation(*this, names_, columns, points.size(), jobs, set.get(), options).run();
}

Failures CompiledFormulas::evaluate(const Points& points, std::span<const Output> outputs, const Options& options) const
{
    return guarded(
        [&] {
            std::vector<Job> jobs;
            for (const Output& o : outputs)
                jobs.push_back({&item(o.formula), o.formula, o.values});
            return run(points, jobs, options);
        },
        kNoMemoryToEvaluate);
}

Failures CompiledFormulas::gradient(const Points& points, Formula formula, const Target& value,
                                 std::span<const Derivative> by, const Options& options) const
{
    return guarded(
        [&] {
            std::vector<Job> jobs;
            const Item& itself = item(formula);
            if (value.size() != 0)
                jobs.push_back({&itself, formula, value});
            for (const Derivative& d : by)
                jobs.push_back({&derivative(formula, variable(d.variable)), formula, d.values});
            return run(points, jobs, options);
        },
        kNoMemoryToEvaluate);
}

// The public form ----------------------------------------------------------------------------------------------------

Program::Program() : Program(Formulas({}).compile()) {}

Failures Program::evaluate(const Points& points, Formula formula, Target values, const Options& options) const
{
    const Output output{formula, values};
    return impl_->evaluate(points, {&output, 1}, options);
}

Failures Program::evaluate(const Points& points, std::initializer_list<Output> outputs, const Options& options) const
{
    return impl_->evaluate(points, std::span(outputs.begin(), outputs.size()), options);
}

Failures Program::evaluate(const Points& points, std::span<const Output> outputs, const Options& options) const
{
    return impl_->evaluate(points, outputs, options);
}

Failures Program::gradient(const Points& points, Formula formula, Target values, std::initializer_list<Derivative> by,
                           const Options& options) const
{
    return impl_->gradient(points, formula, values, std::span(by.begin(), by.size()), options);
}

Failures Program::gradient(const Points& points, Formula formula, Target values, std::span<const Derivative> by,
                           const Options& options) const
{
    return impl_->gradient(points, formula, values, by, options);
}

bool Program::dependsOn(Formula formula, const std::string& variable) const
{
    return guarded([&] { return impl_->dependsOn(formula, variable); }, kNoMemoryToEvaluate);
}

bool Program::isNonlinearIn(Formula formula, const std::vector<std::string>& variables) const
{
    return guarded([&] { return impl_->isNonlinearIn(formula, variables); }, kNoMemoryToEvaluate);
}

Pattern Program::jacobianPattern(std::span<const Formula> formulas, std::span<const std::string> variables) const
{
    Pattern pattern;
    pattern.rowStart.push_back(0);
    for (const Formula& f : formulas) {
        for (std::size_t k = 0; k < variables.size(); ++k)
            if (impl_->dependsOn(f, variables[k]))
                pattern.column.push_back(k);
        pattern.rowStart.push_back(pattern.column.size());
    }
    return pattern;
}

std::string Program::text(Formula formula) const { return impl_->text(formula); }

std::string Program::derivativeText(Formula formula, const std::string& variable) const
{
    return impl_->derivativeText(formula, variable);
}

const std::vector<std::string>& Program::variables() const { return impl_->variables(); }

} // namespace qx
