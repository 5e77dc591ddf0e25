// SPDX-License-Identifier: LicenseRef-qxkernel
#include "exprcomp.hpp"

#include "base/qxreal_detail.hpp"
#include "qxexception.hpp"
#include "qxreal.hpp"

#include <algorithm>
#include <cmath>

namespace {

std::size_t at(int i)
{
    return static_cast<std::size_t>(i);
}

[[noreturn]] void fail(const char* identifier)
{
    QX_RAISE("exprcomp", identifier);
}

double power(double x, double y)
{
    if (x == 0)
        return y == 0 ? 1.0 : 0.0;
    const double result = std::pow(x, y);
    if (result != result)
        fail("Power_of_negative");
    return result;
}

double checkedLogArgument(double x)
{
    if (x < 0)
        fail("Log_of_negative");
    return x;
}

double checkedArcArgument(double x)
{
    if (std::fabs(x) > 1)
        fail("Real_argument_out_of_range");
    return x;
}

} // namespace

void ExprComp::createEval()
{
    const std::size_t first = inputs.size();
    std::vector<double> work(first + order.size(), 0.0);
    std::vector<Step> steps;
    steps.reserve(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        const Def& def = defs[at(order[i])];
        const int slot = static_cast<int>(first + i);
        if (def.getNumVal(work[at(slot)]))
            continue;
        Step step{def.kind, {0, 0, 0}, slot};
        for (int k = 0; k < def.nArgs; ++k) {
            const int arg = def.args[at(k)];
            step.args[at(k)] = arg < 0 ? inputIndex.at(inputIndex.lookup(arg).slot)
                                       : static_cast<int>(first) + lifeRange[at(arg)].first;
        }
        steps.push_back(step);
    }
    std::vector<int> outs;
    outs.reserve(outputs.size());
    for (const int output : outputs)
        outs.push_back(static_cast<int>(first) + lifeRange[at(output)].first);
    realFunctions = &qxmath::realFunctions();
    evalOps.swap(steps);
    evalWork.swap(work);
    evalOuts.swap(outs);
}

void ExprComp::eval(const std::vector<double>& in, std::vector<double>& out) const
{
    if (in.size() != inputs.size() || evalOuts.size() != outputs.size())
        fail("Internal_error_symbolic_processing");
    double* const work = evalWork.data();
    for (std::size_t i = 0; i < in.size(); ++i) // few: a call of memmove costs more
        work[i] = in[i];
    const qxmath::RealFunctions& f = *realFunctions;

    for (const Step& step : evalOps) {
        const double a = work[step.args[0]], b = work[step.args[1]];
        double r;
        switch (step.kind) {
        case Conj: case Identity: case Real: case UnaryPlus: r = a; break;
        case Imag:           r = 0; break;
        case UnaryMinus:     r = -a; break;
        case Plus:           r = a + b; break;
        case Minus:          r = a - b; break;
        case Times:          r = a * b; break;
        case Divide: case DivideNonZero: r = a / b; break;
        case Abs:            r = std::fabs(a); break;
        case Exp:            r = f.exp(a); break;
        case Sin:            r = f.sin(a); break;
        case Cos:            r = f.cos(a); break;
        case Tan:            r = f.tan(a); break;
        case Atan:           r = f.atan(a); break;
        case Sinh:           r = f.sinh(a); break;
        case Cosh:           r = f.cosh(a); break;
        case Tanh:           r = f.tanh(a); break;
        case Atan2:          r = f.atan2(a, b); break;
        case Sec:            r = 1 / f.cos(a); break;
        case Csc:            r = 1 / f.sin(a); break;
        case Cot:            r = 1 / f.tan(a); break;
        case Sech:           r = 1 / f.cosh(a); break;
        case Csch:           r = 1 / f.sinh(a); break;
        case Coth:           r = 1 / f.tanh(a); break;
        case Sqrt:
            if (a < 0)
                fail("Sqrt_of_negative");
            r = std::sqrt(a);
            break;
        case Log:            r = f.log(checkedLogArgument(a)); break;
        case Log10:          r = f.log10(checkedLogArgument(a)); break;
        case Log2:           r = qxmath::log2Double(checkedLogArgument(a)); break;
        case Acos:           r = f.acos(checkedArcArgument(a)); break;
        case Asin:           r = f.asin(checkedArcArgument(a)); break;
        case Power:          r = power(a, b); break;
        case Square:         r = a * a; break;
        case Cube:           r = a * (a * a); break;
        case Fourth:         r = (a * a) * (a * a); break;
        case Round:          r = std::floor(a + 0.5); break;
        case Floor:          r = std::floor(a); break;
        case Ceil:           r = std::ceil(a); break;
        case Fix:            r = a < 0 ? std::ceil(a) : std::floor(a); break;
        case Sign:           r = a > 0 ? 1 : a == 0 ? 0 : -1; break;
        case Mod:            r = qxmath::mod(a, b); break;
        case Min:            r = std::min(a, b); break;
        case Max:            r = std::max(a, b); break;
        case And:            r = a != 0 && b != 0; break;
        case Or:             r = a != 0 || b != 0; break;
        case Not:            r = a == 0; break;
        case Less:           r = a < b; break;
        case LessEqual:      r = a <= b; break;
        case Greater:        r = a > b; break;
        case GreaterEqual:   r = a >= b; break;
        case Equal:          r = a == b; break;
        case NotEqual:       r = a != b; break;
        case If:             r = a == 0 ? work[step.args[2]] : b; break;
        default:             fail("Internal_error_symbolic_processing");
        }
        work[step.slot] = r;
    }

    if (out.size() != evalOuts.size())
        out.resize(evalOuts.size());
    for (std::size_t k = 0; k < evalOuts.size(); ++k)
        out[k] = work[evalOuts[k]];
}
