#include <formulas.hpp>
#include <iostream>

int main()
{
    qx::Formulas f({"x", "a"});
    f.define("r", "x^2+1");
    const auto wave = f.add("sin(a*x)/r"); // syntax is checked here, names by compile()
    const auto program = f.compile();

    const std::vector<double> x{0, 0.5, 1};
    std::vector<double> value(3), slope(3);
    qx::Points p(3);
    p.set("x", x).set("a", 2.0);
    program.gradient(p, wave, value, {{"x", slope}}); // values and derivatives, any number of points and threads
    for (int i = 0; i < 3; ++i)
        std::cout << value[i] << ' ' << slope[i] << '\n';
}
