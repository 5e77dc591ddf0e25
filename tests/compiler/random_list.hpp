// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "probe.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

namespace qxtest {

/// A random list of definitions and a slow evaluation of it that shares nothing with the library: by name, recursive, on
/// the C library's functions.
class RandomList
{
public:
    struct Options
    {
        int inputs = 3;
        int operations = 40;
        int outputs = 3;
        bool functions = true; ///< otherwise arithmetic, comparisons and logic only
        int nearby = 0;        ///< operands among so many last ones; 0: any
    };

    RandomList(unsigned seed, const Options& options) : random_(seed)
    {
        for (int i = 0; i < options.inputs; ++i)
            inputs.push_back("x" + std::to_string(i));
        for (int i = 0; i < options.operations; ++i) {
            const std::string name = "v" + std::to_string(i);
            definitions.push_back(name + '=' + operation(options));
            names_.push_back(name);
        }
        for (int i = 0; i < options.outputs; ++i) // among them inputs, constants, repetitions
            outputs.push_back(i == 0 ? names_.back() : operand(options));
        std::shuffle(definitions.begin(), definitions.end(), random_);
    }

    std::vector<double> point()
    {
        std::vector<double> in;
        for (std::size_t i = 0; i < inputs.size(); ++i)
            in.push_back(std::uniform_real_distribution<double>(-2, 2)(random_));
        return in;
    }

    /// The values of the outputs; NaN in a value that has none, and in whatever uses it.
    std::vector<double> slowValues(const std::vector<double>& in)
    {
        std::map<std::string, std::string> rightSides;
        for (const std::string& text : definitions)
            rightSides[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
        std::map<std::string, double> known;
        for (std::size_t i = 0; i < in.size(); ++i)
            known[inputs[i]] = in[i];
        std::vector<double> values;
        for (const std::string& name : outputs)
            values.push_back(slowValue(name, rightSides, known));
        return values;
    }

    Texts definitions, inputs, outputs;

private:
    int pick(std::size_t n) { return static_cast<int>(random_() % n); }

    std::string operand(const Options& options)
    {
        const std::size_t known = names_.size();
        if (known == 0 || pick(5) == 0)
            return inputs.empty() ? constant() : inputs[static_cast<std::size_t>(pick(inputs.size()))];
        const std::size_t range = options.nearby ? std::min<std::size_t>(known, static_cast<std::size_t>(options.nearby)) : known;
        return names_[known - 1 - static_cast<std::size_t>(pick(range))];
    }

    std::string constant()
    {
        const std::string name = "k" + std::to_string(constants_++);
        static const char* const numbers[] = {"0", "1", "2", "3", "4", "-1", "0.5", "-2.5", "7", "1e3"};
        definitions.push_back(name + '=' + numbers[pick(10)]);
        return name;
    }

    std::string operation(const Options& options)
    {
        static const Texts arithmetic{"+", "-", "*", "/", "+", "-", "*", "min", "max", "U-", "U+", "identity", "abs", "if",
                                      "and", "or", "!", "<", "<=", ">", ">=", "==", "!=", "floor", "ceil", "fix", "sign",
                                      "real", "imag", "conj", "mod"};
        static const Texts others{"sin", "cos", "tan", "atan", "exp", "sinh", "cosh", "tanh", "sec", "csc", "cot", "sech",
                                  "csch", "coth", "sqrt", "log", "log10", "log2", "acos", "asin", "atan2", "round", "^", "^"};
        const Texts& from = options.functions && pick(3) == 0 ? others : arithmetic;
        const std::string name = from[static_cast<std::size_t>(pick(from.size()))];
        if (pick(12) == 0)
            return constantText();
        int nArgs = 1;
        while (ExprComp::kindOf(name, nArgs) == 0)
            ++nArgs;
        std::string text = name + '(';
        for (int i = 0; i < nArgs; ++i) {
            const bool number = (name == "^" && i == 1) || pick(10) == 0;
            text += (i ? "," : "") + (number ? constant() : operand(options));
        }
        return text + ')';
    }

    std::string constantText() { return std::to_string(0.25 * (pick(20) - 10)); }

    double slowValue(const std::string& name, const std::map<std::string, std::string>& rightSides,
                     std::map<std::string, double>& known)
    {
        if (const auto found = known.find(name); found != known.end())
            return found->second;
        const std::string& text = rightSides.at(name);
        const std::size_t open = text.find('(');
        if (open == std::string::npos)
            return known[name] = std::stod(text);
        double a[3] = {};
        int count = 0;
        for (std::size_t from = open + 1; from < text.size();) {
            const std::size_t to = text.find_first_of(",)", from);
            a[count++] = slowValue(text.substr(from, to - from), rightSides, known);
            from = to + 1;
        }
        return known[name] = slowResult(text.substr(0, open), count, a);
    }

public:
    /// The operations as the documentation states them.
    static double slowResult(const std::string& op, int count, const double* a)
    {
        const double nan = std::nan("");
        const double x = a[0], y = a[1];
        using F = double (*)(double);
        static const std::map<std::string, F> plain{
            {"sin", std::sin}, {"cos", std::cos}, {"tan", std::tan}, {"atan", std::atan}, {"exp", std::exp},
            {"sinh", std::sinh}, {"cosh", std::cosh}, {"tanh", std::tanh}, {"abs", std::fabs}, {"floor", std::floor},
            {"ceil", std::ceil}, {"acos", std::acos}, {"asin", std::asin}, {"sqrt", std::sqrt}, {"log", std::log},
            {"log10", std::log10}, {"log2", std::log2}};
        static const std::map<std::string, F> reciprocals{{"sec", std::cos}, {"csc", std::sin}, {"cot", std::tan},
                                                          {"sech", std::cosh}, {"csch", std::sinh}, {"coth", std::tanh}};
        if (const auto f = plain.find(op); f != plain.end())
            return f->second(x);
        if (const auto f = reciprocals.find(op); f != reciprocals.end())
            return 1 / f->second(x);
        if (op == "conj" || op == "identity" || op == "real" || op == "U+")
            return x;
        if (op == "imag")
            return 0;
        if (op == "U-")
            return -x;
        if (op == "+")
            return x + y;
        if (op == "-")
            return x - y;
        if (op == "*")
            return x * y;
        if (op == "/")
            return x / y;
        if (op == "atan2")
            return std::atan2(x, y);
        if (op == "round")
            return std::floor(x + 0.5);
        if (op == "fix")
            return std::trunc(x);
        if (op == "sign")
            return x > 0 ? 1 : x == 0 ? 0 : -1;
        if (op == "min")
            return y < x ? y : x;
        if (op == "max")
            return x < y ? y : x;
        if (op == "and")
            return x != 0 && y != 0;
        if (op == "or")
            return x != 0 || y != 0;
        if (op == "!")
            return x == 0;
        if (op == "<")
            return x < y;
        if (op == "<=")
            return x <= y;
        if (op == ">")
            return x > y;
        if (op == ">=")
            return x >= y;
        if (op == "==")
            return x == y;
        if (op == "!=")
            return x != y;
        if (op == "if")
            return x == 0 ? a[2] : y;
        if (op == "mod") {
            if (y == 0)
                return x;
            double q = x / y;
            if (std::floor(y) == y)
                q += std::fabs(q) * 5 * 2.220446049250313e-16;
            return x - std::floor(q) * y;
        }
        if (op == "^")
            return x == 0 ? (y == 0 ? 1 : 0) : std::pow(x, y);
        ADD_FAILURE() << "no operation " << op << " of " << count;
        return nan;
    }

private:
    std::mt19937 random_;
    Texts names_;
    int constants_ = 0;
};

} // namespace qxtest
