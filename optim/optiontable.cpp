// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/optiontable_detail.hpp"

#include <algorithm>
#include <limits>

namespace qxoptim {

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kMaxInt = std::numeric_limits<int>::max();
constexpr std::nullopt_t kNone = std::nullopt;

constexpr Option integer(const char* property, Home home, const char* word, const char* nonlinearWord,
                         std::optional<double> fallback, double low = 0, double high = kMaxInt)
{
    return {property, Kind::Integer, home, word, nonlinearWord, RuleType::Integer, fallback, low, high, nullptr, {}};
}

constexpr Option real(const char* property, Home home, const char* word, const char* nonlinearWord,
                      std::optional<double> fallback, double high = kInf, RuleType rule = RuleType::Real)
{
    return {property, Kind::Real, home, word, nonlinearWord, rule, fallback, 0.0, high, nullptr, {}};
}

constexpr Option own(const char* property, Home home, RuleType rule, const char* fallback, std::span<const Choice> choices)
{
    return {property, Kind::Own, home, nullptr, nullptr, rule, kNone, 0.0, 0.0, fallback, choices};
}

constexpr Option commonInteger(const char* property, const char* word, std::optional<double> fallback, double low = 0,
                               double high = kMaxInt)
{
    return integer(property, Home::Common, word, word, fallback, low, high);
}

constexpr Option commonReal(const char* property, const char* word, std::optional<double> fallback, double high = kInf,
                            RuleType rule = RuleType::Real)
{
    return real(property, Home::Common, word, word, fallback, high, rule);
}

constexpr Option nonlinearInteger(const char* property, const char* word, std::optional<double> fallback, double low = 0,
                                  double high = kMaxInt)
{
    return integer(property, Home::Nonlinear, nullptr, word, fallback, low, high);
}

constexpr Option nonlinearReal(const char* property, const char* word, std::optional<double> fallback,
                               double high = kInf, RuleType rule = RuleType::Real)
{
    return real(property, Home::Nonlinear, nullptr, word, fallback, high, rule);
}

constexpr Choice kMaximize[] = {{"off", "Minimize goal function"}, {"on", "Maximize goal function"}};
constexpr Choice kQpSolver[] = {{"cholesky", "Cholesky"}, {"cg", "Conjugate-gradient"}, {"qn", "Quasi-Newton"}};
constexpr Choice kStop[] = {{"on", "On"}, {"off", "Off"}};
constexpr Choice kHessMem[] = {{"full", ""}, {"limited", ""}};
constexpr Choice kLineSearch[] = {{"derivative", "Derivative line search"},
                                  {"nonderivative", "Nonderivative line search"}};

constexpr Option kOptions[] = {
    commonInteger("checkfreq", "Check frequency", 60, 1),
    commonReal("elasticw", "Elastic weight", kNone),
    commonInteger("expfreq", "Expand frequency", 10000),
    commonInteger("facfreq", "Factorization frequency", kNone),
    real("feastol", Home::Each, "Feasibility tolerance", "Minor feasibility tolerance", 1e-06),
    commonInteger("hessdim", "Hessian dimension", kNone),
    commonReal("infbound", "Infinite bound size", 1e+20, kInf, RuleType::OpenReal),
    integer("itlim", Home::Each, "Iterations Limit", "Minor iterations limit", kNone),
    own("maximize", Home::Common, RuleType::Index, "off", kMaximize),
    real("opttol", Home::Each, "Optimality tolerance", "Major optimality tolerance", 1e-06),
    commonInteger("parprice", "Partial price", kNone, 1),
    commonReal("pivtol", "Pivot tolerance", 3.7e-11),
    own("print", Home::Common, RuleType::AnyText, nullptr, {}),
    integer("printfreq", Home::Each, "Print frequency", "Minor print frequency", 100),
    integer("printlevel", Home::Each, "Print level", "Minor print level", 1),
    own("qpsolver", Home::Common, RuleType::Choice, "cholesky", kQpSolver),
    commonInteger("scaleopt", "Scale option", kNone, 0, 2),
    commonReal("scaletol", "Scale tolerance", 0.9),
    own("stop", Home::Common, RuleType::Index, "on", kStop),
    commonInteger("suplim", "Superbasics limit", kNone, 1),
    commonInteger("elastic", "Elastic mode", 1, 0, 2),
    commonInteger("elasticobj", "Elastic objective", 2, 0, 2),
    nonlinearReal("cendiff", "Central difference interval", 6e-06),
    nonlinearReal("diffint", "Difference interval", 1.5e-08, kInf, RuleType::OpenReal),
    nonlinearReal("funcprec", "Function precision", 3.8e-11),
    nonlinearInteger("hessfreq", "Hessian frequency", 999999),
    own("hessmem", Home::Nonlinear, RuleType::Choice, nullptr, kHessMem),
    nonlinearInteger("hessupd", "Hessian updates", 10),
    own("linesearch", Home::Nonlinear, RuleType::Choice, "derivative", kLineSearch),
    nonlinearReal("linestol", "Linesearch tolerance", 0.9, 1.0),
    nonlinearReal("majfeastol", "Major feasibility tolerance", 1e-06),
    nonlinearInteger("majitlim", "Major iterations limit", kNone),
    nonlinearInteger("majprintlevel", "Major print level", 1),
    nonlinearInteger("majprintfreq", "Major print frequency", 100),
    nonlinearReal("majsteplim", "Major step limit", 2.0),
    nonlinearInteger("newsuplim", "New superbasics limit", 99),
    nonlinearInteger("proxmeth", "Proximal point method", 1, 1, 2),
    nonlinearInteger("totitlim", "Iterations limit", kNone),
    nonlinearInteger("verify", "Verify level", 0, -1, 3),
    nonlinearReal("viollim", "Violation limit", 10.0),
};

// Blanks and capitals as the optimizer has always been sent them.
constexpr OptionLine kLines[] = {
    {"maximize", "off", "Minimize"},
    {"maximize", "on", "Maximize"},
    {"qpsolver", "cholesky", "QPSolver Cholesky      "},
    {"qpsolver", "cg", "QPsolver CG     "},
    {"qpsolver", "qn", "QPsolver QN         "},
    {"hessmem", "full", "Hessian    full memory"},
    {"hessmem", "limited", "Hessian limited memory"},
    {"linesearch", "derivative", "Derivative    line search"},
    {"linesearch", "nonderivative", "Nonderivative line search"},
};

} // namespace

std::span<const Option> optionTable() { return kOptions; }
std::span<const OptionLine> optionLines() { return kLines; }

const Option* findOption(const std::string& property)
{
    const auto* found = std::find_if(std::begin(kOptions), std::end(kOptions),
                                     [&](const Option& option) { return property == option.property; });
    return found == std::end(kOptions) ? nullptr : found;
}

} // namespace qxoptim
