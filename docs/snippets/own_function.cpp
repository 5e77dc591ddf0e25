// A function of your own, with its derivative as a formula.
#include <formulas.hpp>

#include <cmath>
#include <cstdio>
#include <vector>

int main()
{
    qx::Formulas f({"x"});
    f.function("langevin", {.parameters = {"t"}, // coth t - 1/t, 0 at 0
                            .real =
                                [](qx::Arguments<double> args, std::span<double> out) {
                                    for (std::size_t i = 0; i < out.size(); ++i) {
                                        const double t = args[0][i];
                                        out[i] = std::abs(t) < 1e-3 ? t / 3 : 1 / std::tanh(t) - 1 / t;
                                    }
                                },
                            .derivatives = {"1/t^2-1/sinh(t)^2"}});
    const auto magnetisation = f.add("langevin(2*x)");
    const auto program = f.compile();

    const std::vector<double> x{0.25, 0.5, 1.0};
    std::vector<double> m(3), dm(3);
    qx::Points p(3);
    p.set("x", x);
    program.gradient(p, magnetisation, m, {{"x", dm}});
    for (int i = 0; i < 3; ++i)
        std::printf("%.6f %.6f\n", m[i], dm[i]);
}
