// A formula over points, with a definition and a parameter.
#include <formulas.hpp>

#include <cstdio>
#include <vector>

int main()
{
    qx::Formulas f({"x", "y", "a"});           // names that points give values to
    f.define("r", "sqrt(x^2+y^2)");
    const auto wave = f.add("exp(-r)*sin(a*x)"); // syntax is checked here
    const auto program = f.compile();          // names are resolved here; immutable from here on

    const std::vector<double> x{0.0, 0.5, 1.0}, y{0.0, 0.0, 1.0};
    std::vector<double> out(3);
    qx::Points p(3);
    p.set("x", x).set("y", y).set("a", 3.0);   // arrays are lent, a number holds for all points
    program.evaluate(p, wave, out);

    for (const double v : out)
        std::printf("%.6f\n", v);
}
