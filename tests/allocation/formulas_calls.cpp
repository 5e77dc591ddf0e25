// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "exprcomp.hpp"
#include "formulas.hpp"

namespace qxtest {

namespace {

/// What a user sets up, and where values go.
struct User
{
    std::unique_ptr<qx::Formulas> formulas{new qx::Formulas({"x", "y", "a"})};
    qx::Formula wave;
    qx::Program program;
    std::vector<double> x{0.5, 1.5, 2.5, 3.5}, y{1.0, 2.0, 3.0, 4.0};
    qx::Points points{4};
    std::vector<double> out, dx, text;
    std::string said;
    double number = 0.0;

    User()
    {
        formulas->define("r", "sqrt(x^2+y^2)");
        wave = formulas->add("exp(-r^2)*sin(a*x)");
        points.set("x", x).set("y", y).set("a", 3.0);
    }
};

std::shared_ptr<User> user() { return std::make_shared<User>(); }

std::shared_ptr<User> compiled()
{
    auto u = user();
    u->program = u->formulas->compile();
    return u;
}

void show(std::ostream& out, const User& u)
{
    showAll(out, u.out);
    showAll(out, u.dx);
    out << u.said << '|' << u.number << '|' << u.points.size();
}

/// The same, and what the formulas compile to.
void showFormulas(std::ostream& out, const User& u)
{
    show(out, u);
    const qx::Program p = u.formulas->compile();
    out << p.text(u.wave) << p.variables().size();
}

} // namespace

std::vector<Call> formulasCalls()
{
    return Module("formulas", "bad_alloc Out_of_memory_compiling_formulas Out_of_memory_evaluating_formulas")
        .add("define", user, [](User& u) { u.formulas->define("s", "x*r+y+a_definition_that_comes_later"); }, show)
        .add("add", user, [](User& u) { u.formulas->add("sin(x)*r/2"); }, showFormulas)
        .add("function", user, [](User& u) {
                 u.formulas->function("twice", {.parameters = {"t"},
                                                .real = [](qx::Arguments<double> args, std::span<double> out) {
                                                    for (std::size_t i = 0; i < out.size(); ++i)
                                                        out[i] = 2.0 * args[0][i];
                                                },
                                                .derivatives = {"2"}});
             }, showFormulas)
        .add("compile", user, [](User& u) { u.said = u.formulas->compile().text(u.wave); }, showFormulas)
        .add("Points set", user, [](User& u) { u.points.set("a_name_that_is_longer_than_a_short_string", u.x); }, show)
        .add("evaluate", compiled, [](User& u) {
                 std::vector<double> out(4);
                 u.program.evaluate(u.points, u.wave, out, {.threads = 1});
                 u.out.swap(out);
             }, show)
        .add("gradient", compiled, [](User& u) {
                 std::vector<double> out(4), dx(4);
                 u.program.gradient(u.points, u.wave, out, {{"x", dx}}, {.threads = 1});
                 u.out.swap(out);
                 u.dx.swap(dx);
             }, show)
        .add("dependsOn", compiled, [](User& u) { u.number = u.program.dependsOn(u.wave, "y"); }, show)
        .add("isNonlinearIn", compiled, [](User& u) { u.number = u.program.isNonlinearIn(u.wave, {"y"}); }, show)
        .add("derivativeText", compiled, [](User& u) { u.said = u.program.derivativeText(u.wave, "x"); }, show)
        .add("feed", compiled, [](User& u) {
                 ExprComp comp;
                 const std::string by[] = {"x"};
                 u.number = static_cast<double>(u.program.feed(comp, std::span(&u.wave, 1), by).size());
             }, show)
        .calls();
}

} // namespace qxtest
