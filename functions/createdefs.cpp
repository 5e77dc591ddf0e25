// SPDX-License-Identifier: LicenseRef-qxkernel
// Function objects as definitions of the expression compiler.

#include "evalfun_binary.hpp"
#include "evalfun_spec.hpp"
#include "evalnodes.hpp"
#include "exprcomp.hpp"
#include "qxexception.hpp"

#include <cstdlib>

namespace {

/// Definitions one after the other, with ids from the caller's counter.
class Definitions
{
public:
    Definitions(ExprComp& comp, int& nextId) : comp_(comp), nextId_(nextId) {}

    int constant(double value)
    {
        comp_.addDef(nextId_, value);
        return nextId_++;
    }
    template <class... Args>
    int add(int kind, Args... args)
    {
        comp_.addDef(nextId_, kind, args...);
        return nextId_++;
    }
    /// sum c[k] x^k by Horner's rule.
    int polynomial(const std::vector<double>& c, int x)
    {
        int sum = constant(c.empty() ? 0.0 : c.back());
        for (std::size_t k = c.size(); k-- > 1;)
            sum = add(ExprComp::Plus, add(ExprComp::Times, sum, x), constant(c[k - 1]));
        return sum;
    }
    /// |w| > |x|
    int isInside(int x, int w) { return add(ExprComp::Greater, add(ExprComp::Abs, w), add(ExprComp::Abs, x)); }

private:
    ExprComp& comp_;
    int& nextId_;
};

/// The kind of a function with this name. The logical operators have names of their own in the compiler.
int kindOf(const FunObj& f)
{
    const std::string name = f.getName();
    return ExprComp::kindOf(name == "&&" ? "and" : name == "||" ? "or" : name, f.nArgs());
}

} // namespace

int FunObj::createDefs(const EvalNodes&, ExprComp&, DefIds&, int&, const VarEvaluatorPtr&) const
{
    QX_RAISE("evalfun", "Cannot create definitions from " + getName());
}

int FunObj::createDefsRec(const EvalNodes& args, int kind, ExprComp& compiler, DefIds& names, int& nextId,
                          const VarEvaluatorPtr& evaluator) const
{
    std::vector<int> ids;
    ids.reserve(args.size());
    for (const EvalNodePtr& arg : args)
        ids.push_back(arg->createDefs(compiler, names, nextId, evaluator));
    return Definitions(compiler, nextId).add(kind, ids);
}

int KernelUnFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                            const VarEvaluatorPtr& evaluator) const
{
    const int kind = kindOf(*this);
    return kind ? createDefsRec(args, kind, compiler, names, nextId, evaluator)
                : FunObj::createDefs(args, compiler, names, nextId, evaluator);
}

int KernelBinFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                             const VarEvaluatorPtr& evaluator) const
{
    const int kind = kindOf(*this);
    return kind ? createDefsRec(args, kind, compiler, names, nextId, evaluator)
                : FunObj::createDefs(args, compiler, names, nextId, evaluator);
}

int ConstPowFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                            const VarEvaluatorPtr& evaluator) const
{
    const int base = args[0]->createDefs(compiler, names, nextId, evaluator);
    Definitions d(compiler, nextId);
    return d.add(ExprComp::Power, base, d.constant(exponent_));
}

int PlusSqFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                          const VarEvaluatorPtr& evaluator) const
{
    const int x = args[0]->createDefs(compiler, names, nextId, evaluator);
    const int y = args[1]->createDefs(compiler, names, nextId, evaluator);
    Definitions d(compiler, nextId);
    const int xx = d.add(ExprComp::Square, x), yy = d.add(ExprComp::Square, y);
    return d.add(ExprComp::Plus, xx, yy);
}

// |w| > |x| ? p(x / w) : (x / w < 0 ? low : high). All of it is computed, and infinities and NaN that are not chosen do no
// harm: none of these operations fails.
int TransPolyFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                             const VarEvaluatorPtr& evaluator) const
{
    const int x = args[0]->createDefs(compiler, names, nextId, evaluator);
    const int w = args[1]->createDefs(compiler, names, nextId, evaluator);
    Definitions d(compiler, nextId);
    const int q = d.add(ExprComp::Divide, x, w), inside = d.isInside(x, w);
    const int value = d.polynomial(poly_->coefficients(), q);
    const int isLow = d.add(ExprComp::Less, q, d.constant(0.0));
    const int low = d.constant(low_), high = d.constant(high_);
    return d.add(ExprComp::If, inside, value, d.add(ExprComp::If, isLow, low, high));
}

// |w| > |x| ? p(x / w) / w : 0
int DiracPolyFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                             const VarEvaluatorPtr& evaluator) const
{
    const int x = args[0]->createDefs(compiler, names, nextId, evaluator);
    const int w = args[1]->createDefs(compiler, names, nextId, evaluator);
    Definitions d(compiler, nextId);
    const int q = d.add(ExprComp::Divide, x, w), inside = d.isInside(x, w);
    const int value = d.add(ExprComp::Divide, d.polynomial(poly_->coefficients(), q), w);
    return d.add(ExprComp::If, inside, value, d.constant(0.0));
}

int GenAddFun::createDefs(const EvalNodes& args, ExprComp& compiler, DefIds& names, int& nextId,
                          const VarEvaluatorPtr& evaluator) const
{
    if (args.empty())
        return FunObj::createDefs(args, compiler, names, nextId, evaluator);
    int sum = args[0]->createDefs(compiler, names, nextId, evaluator);
    for (std::size_t i = 1; i < args.size(); ++i) {
        const int term = args[i]->createDefs(compiler, names, nextId, evaluator);
        sum = Definitions(compiler, nextId).add(ExprComp::Plus, sum, term);
    }
    return sum;
}
