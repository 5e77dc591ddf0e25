// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprcomp.hpp"
#include "support/failure.hpp"

#include <string>
#include <vector>

namespace qxtest {

using Texts = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

/// A compiler that shows what its passes leave behind.
class Probe : public ExprComp
{
public:
    Probe() = default;
    Probe(const Texts& definitions, const Texts& inputNames, const Texts& outputNames)
    {
        parse(definitions, inputNames, outputNames);
    }

    using ExprComp::RegMode;

    using ExprComp::allocateRegs;
    using ExprComp::createEval;
    using ExprComp::crossRef;
    using ExprComp::eliminateCommon;
    using ExprComp::optimizeStack;
    using ExprComp::topoSort;

    using ExprComp::codeBounds;
    using ExprComp::defs;
    using ExprComp::evalOps;
    using ExprComp::evalOuts;
    using ExprComp::evalWork;
    using ExprComp::Step;
    using ExprComp::inputIndex;
    using ExprComp::inputs;
    using ExprComp::lifeRange;
    using ExprComp::names;
    using ExprComp::order;
    using ExprComp::outputIndex;
    using ExprComp::outputs;
    using ExprComp::regOf;
    using ExprComp::regState;
    using ExprComp::stackMode;
    using ExprComp::swapMode;

    /// All passes, without a class.
    void runPasses()
    {
        crossRef();
        topoSort();
        eliminateCommon();
        topoSort();
        allocateRegs();
        optimizeStack();
        createEval();
    }

    Bytes classBytes(const std::string& className = "T", const std::string& method = "f", bool withMain = false)
    {
        Bytes bytes;
        compile(className, method, bytes, withMain);
        return bytes;
    }

    /// The definition of a name after crossRef; the list's own numbering otherwise.
    int find(const std::string& name) const
    {
        for (const Def& def : defs)
            if (getVarName(def.id) == name)
                return def.id;
        return -1;
    }
    int kindOfName(const std::string& name) const { return defs[static_cast<std::size_t>(find(name))].kind; }
    int stackModeOf(const std::string& name) const { return stackMode[static_cast<std::size_t>(find(name))]; }
    int swapModeOf(const std::string& name) const { return swapMode[static_cast<std::size_t>(find(name))]; }
    int registerOf(const std::string& name) const { return regOf[static_cast<std::size_t>(find(name))]; }

    /// The names in topological order.
    Texts orderedNames() const
    {
        Texts result;
        for (const int d : order)
            result.push_back(getVarName(d));
        return result;
    }

    std::vector<double> valuesAt(const std::vector<double>& in) const
    {
        std::vector<double> out;
        eval(in, out);
        return out;
    }
};

/// The outputs of a list at a point, by the interpreter.
inline std::vector<double> interpreted(const Texts& definitions, const Texts& inputNames, const Texts& outputNames,
                                       const std::vector<double>& in)
{
    Probe comp(definitions, inputNames, outputNames);
    comp.classBytes();
    return comp.valuesAt(in);
}

/// One function of its arguments, by the interpreter: y = name(a, b, c).
inline double interpretedFunction(const std::string& name, const std::vector<double>& args)
{
    const Texts letters{"a", "b", "c"};
    const Texts inputNames(letters.begin(), letters.begin() + static_cast<std::ptrdiff_t>(args.size()));
    std::string text = "y=" + name + "(";
    for (std::size_t i = 0; i < args.size(); ++i)
        text += (i ? "," : "") + letters[i];
    return interpreted({text + ")"}, inputNames, {"y"}, args)[0];
}

} // namespace qxtest
