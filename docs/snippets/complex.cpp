// Complex values: give complex points, or take complex results.
#include <formulas.hpp>

#include <complex>
#include <cstdio>
#include <vector>

int main()
{
    qx::Formulas f({"w"});
    const auto impedance = f.add("R+i*w*L"), size = f.add("abs(R+i*w*L)");
    f.define("R", "3").define("L", "0.5");
    const auto program = f.compile();

    const std::vector<double> w{0, 8};
    std::vector<std::complex<double>> z(2);
    std::vector<double> magnitude(2);
    qx::Points p(2);
    p.set("w", w);
    program.evaluate(p, {{impedance, z}, {size, magnitude}}); // both at once; a real result may come out of complex parts

    for (int i = 0; i < 2; ++i)
        std::printf("%g%+gi, %g\n", z[i].real(), z[i].imag(), magnitude[i]);
}
