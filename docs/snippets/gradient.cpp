// A value and its derivatives; they are made symbolically and share what they have in common.
#include <formulas.hpp>

#include <cstdio>
#include <vector>

int main()
{
    qx::Formulas f({"x", "y"});
    const auto area = f.add("x^2*y");
    const auto program = f.compile();

    const std::vector<double> x{1, 2, 3}, y{10, 20, 30};
    std::vector<double> value(3), dx(3), dy(3);
    qx::Points p(3);
    p.set("x", x).set("y", y);
    program.gradient(p, area, value, {{"x", dx}, {"y", dy}});

    for (int i = 0; i < 3; ++i)
        std::printf("%g %g %g\n", value[i], dx[i], dy[i]);
    std::printf("depends on y: %d, nonlinear in y: %d\n", program.dependsOn(area, "y"), program.isNonlinearIn(area, {"y"}));
}
