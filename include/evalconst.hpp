// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "varevaluator.hpp"

#include <complex>
#include <map>
#include <string>
#include <vector>

/// Evaluator of constant expressions: a table of constants, the standard functions, the imaginary unit.
///
/// Constants are given as "name=expression", evaluated in order with the earlier ones known; complex values are allowed.
/// "i" and "j" are the imaginary unit unless a constant has that name. A text without "=" or without a name raises
/// "Syntax_error_in_expression" with "Expression".
class QX_API ConstVarEvaluator : public VarEvaluator
{
public:
    explicit ConstVarEvaluator(const std::vector<std::string>& constants);
    ~ConstVarEvaluator() override;

    using VarEvaluator::eval;
    /// Raises "Unknown_variable_name" with "Name".
    void eval(const VarEvaluatorPtr& evaluator, const std::string& name, unsigned flags, const ValRepPtr& rep,
              const ValRepCachePtr& cache) override;
    /// Raises "Unknown_function_name" or "Wrong_number_of_function_arguments", each with "Name".
    FunObjPtr getFun(const std::string& name, int nArgs) override;
    /// Raises "Unknown_function_name" with "Name": there are none.
    FunObjPtr getStringFun(const std::string& name, int nArgs, const std::vector<std::string>& strings,
                           const std::vector<int>& positions) override;
    EvalNodePtr expand(const VarEvaluatorPtr& evaluator, const std::string& name) override;

private:
    friend class EvalConst;

    void define(const VarEvaluatorPtr& self, const std::string& constant);

    std::map<std::string, ValRepPtr> values_;
    std::map<std::string, FunObjPtr> funs_;
};

/// One-line evaluation of constant expressions:
///
///     EvalConst({"R=8.314", "T=20+273.15"}).evalExpr("R*T/2")
class QX_API EvalConst
{
public:
    explicit EvalConst(const std::vector<std::string>& constants = {});

    /// The real value. Raises "Complex_number_in_real_expression" when it is not real, also when a complex number
    /// occurs on the way ("i*i"); domain failures, such as that of sqrt(-1), raise the function's message.
    double evalExpr(const std::string& text) const;
    /// The complex value; complex numbers are allowed everywhere.
    std::complex<double> evalExprComplex(const std::string& text) const;

private:
    boost::shared_ptr<ConstVarEvaluator> evaluator_;
};
