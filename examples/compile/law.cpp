// SPDX-License-Identifier: LicenseRef-qxkernel
#include "law.hpp"

#include "evalfun.hpp"
#include "evalnodes.hpp"
#include "evalshadow.hpp"
#include "evaltree.hpp"
#include "exprimpl.hpp"
#include "nodemaker.hpp"
#include "qxexception.hpp"
#include "varevaluator.hpp"

#include <boost/make_shared.hpp>
#include <cctype>
#include <map>
#include <set>

namespace {

// Inputs are basic variables, everything else is a definition. No numbers are evaluated here: the nodes only feed the
// compiler.
class LawHost : public VarEvaluator
{
public:
    explicit LawHost(const LawText& law)
        : VarEvaluator(boost::make_shared<NodeMaker>(), boost::make_shared<ShadowHandler>()),
          inputs_(law.inputs.begin(), law.inputs.end())
    {
        std::vector<FunObjPtr> standard;
        getStdFuns(standard);
        for (const FunObjPtr& f : standard)
            functions_[f->getName()] = f;
        for (const std::vector<examples::Formula>* group : {&law.definitions, &law.outputs})
            for (const examples::Formula& f : *group)
                definitions_[f.name] = boost::make_shared<EvalTree>(f.text, false);
    }

    using VarEvaluator::diff;

    const EvalTreePtr& tree(const std::string& name) const { return definitions_.at(name); }

    void eval(const VarEvaluatorPtr&, const std::string& name, unsigned, const ValRepPtr&, const ValRepCachePtr&) override
    {
        QX_RAISE("compile", "Unknown_variable_name", "Name", name);
    }
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override
    {
        if (inputs_.count(name))
            return {};
        const auto found = definitions_.find(name);
        if (found == definitions_.end())
            QX_RAISE("compile", "Unknown_variable_name", "Name", name);
        return found->second->getRoot(evaluator);
    }
    FunObjPtr getFun(const std::string& name, int nArgs) override
    {
        const auto found = functions_.find(name);
        if (found == functions_.end())
            QX_RAISE("compile", "Unknown_function_name", "Name", name);
        if (found->second->nArgs() != nArgs)
            QX_RAISE("compile", "Wrong_number_of_function_arguments", "Name", name);
        return found->second;
    }
    FunObjPtr getStringFun(const std::string& name, int, const std::vector<std::string>&, const std::vector<int>&) override
    {
        QX_RAISE("compile", "Unknown_function_name", "Name", name);
    }

    // if(condition, value, value): the compiler knows it; its derivative is that of the branches.
    bool isOp(const std::string& name, int nArgs) override { return name == "if" && nArgs == 3; }
    EvalNodePtr diff(const VarEvaluatorPtr& evaluator, const std::string& op, const EvalNodes& args,
                     const std::string& var) override
    {
        const EvalNodePtr a = args[1]->diff(var, evaluator), b = args[2]->diff(var, evaluator);
        return a->isZero() && b->isZero() ? a : getNodeMaker()->makeGenOpNode(op, {args[0], a, b});
    }

private:
    std::set<std::string> inputs_;
    std::map<std::string, EvalTreePtr> definitions_;
    std::map<std::string, FunObjPtr> functions_;
};

std::string identity(const std::string& prefixText)
{
    return prefixText;
}

// The length of the longest start of an infix text that something could follow to make a formula of it.
std::size_t viableLength(const std::string& text)
{
    constexpr std::size_t longest = 2000;
    const auto viable = [](const std::string& start) {
        std::string closing;
        for (const char c : start)
            if (c == '(')
                closing += ')';
            else if (c == ')' && !closing.empty())
                closing.pop_back();
        for (const char* next : {"", "1", "=1", "&1", "|1", "'"}) // an operand, or the rest of an operator
            if (!qxInfixToPrefix(start + next + closing).empty())
                return true;
        return false;
    };
    std::size_t length = std::min(text.size(), longest);
    for (std::size_t n = 1; n <= length; ++n)
        if (!viable(text.substr(0, n)))
            return n - 1;
    return length;
}

// Where a name stands in a text as a whole word; npos if it does not.
std::size_t findName(const std::string& text, const std::string& name)
{
    const auto isPart = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    for (std::size_t at = text.find(name); at != std::string::npos && !name.empty(); at = text.find(name, at + 1)) {
        const std::size_t end = at + name.size();
        if ((at == 0 || !isPart(text[at - 1])) && (end == text.size() || !isPart(text[end])))
            return at;
    }
    return std::string::npos;
}

struct Problem
{
    std::string text;
    std::string name; // the name that the caret points at
};

Problem problemOf(const qxbase::Exception& e)
{
    const std::string id = e.getId();
    const std::string name = e.getArgs(0).empty() ? "" : e.getArgs(0).front().second;
    const std::string refused = "Cannot create definitions from ";
    if (id == "Unknown_variable_name")
        return {name + " is neither an input nor a definition", name};
    if (id == "Unknown_function_name")
        return {"there is no function " + name, name};
    if (id == "Wrong_number_of_function_arguments")
        return {name + " takes another number of arguments", name};
    if (id == "Definition set may not contain complex variables.")
        return {"the formula has a complex number", "i"};
    if (id.rfind(refused, 0) == 0)
        return {id.substr(refused.size()) + " has no form in compiled code", id.substr(refused.size())};
    if (id == "Syntax_error_in_expression")
        return {"this is no formula", ""};
    if (id == "Expression_nested_too_deeply" || id == "circvar")
        return {"definitions refer to each other without end", ""};
    return {id, ""};
}

// The message with the formula and, where a place is known, a caret.
std::string explained(const examples::Formula& asked, const LawText& law, const qxbase::Exception& e)
{
    const Problem problem = problemOf(e);
    const bool syntax = e.getId() == "Syntax_error_in_expression";
    const std::string wrong = syntax && !e.getArgs(0).empty() ? e.getArgs(0).front().second : "";
    std::vector<const examples::Formula*> all{&asked}; // the formula that the user asked for first, then what it may use
    for (const std::vector<examples::Formula>* group : {&law.definitions, &law.outputs})
        for (const examples::Formula& f : *group)
            all.push_back(&f);
    for (const examples::Formula* f : all) {
        std::size_t at = std::string::npos;
        if (syntax && f->text == wrong && !law.prefix)
            at = viableLength(f->text);
        else if (!syntax)
            at = findName(f->text, problem.name);
        if (at != std::string::npos)
            return problem.text + "\n  " + f->name + " = " + f->text + "\n  " + std::string(f->name.size() + 3 + at, ' ') + '^';
    }
    return problem.text + "\n  " + asked.name + " = " + asked.text;
}

} // namespace

std::vector<std::string> feed(const LawText& law, ExprComp& compiler)
{
    setInfixConverter(law.prefix ? identity : InfixConverter(qxInfixToPrefix));
    const auto host = boost::make_shared<LawHost>(law);
    DefIds ids;
    int nextId = 0;
    for (const std::string& name : law.inputs) {
        ids.insert(name, nextId);
        compiler.setName(nextId, name);
        compiler.addInput(nextId++);
    }
    std::vector<std::string> names;
    const auto add = [&](const std::string& name, const EvalTreePtr& tree) {
        const int id = tree->getRoot(host)->createDefs(compiler, ids, nextId, host);
        compiler.addOutput(id);
        if (id >= static_cast<int>(law.inputs.size()))
            compiler.setName(id, name);
        names.push_back(name);
    };
    for (const examples::Formula& f : law.outputs)
        try {
            const EvalTreePtr& tree = host->tree(f.name);
            add(f.name, tree);
            for (const std::string& input : law.gradient)
                add("d(" + f.name + ',' + input + ')', tree->diff(input, host));
        } catch (const qxbase::Exception& e) {
            throw LawError(explained(f, law, e));
        }
    return names;
}
