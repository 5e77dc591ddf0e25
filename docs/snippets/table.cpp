// A table as a function of formulas: here four points of the viscosity of water (mPa s) over the temperature (degC).
#include <formulas.hpp>
#include <interptable.hpp>

#include <boost/make_shared.hpp>
#include <cstdio>
#include <vector>

int main()
{
    InterpTableData water;
    water.axes = boost::make_shared<std::vector<std::vector<double>>>(std::vector<std::vector<double>>{{0, 20, 40, 60}});
    water.values = {boost::make_shared<std::vector<double>>(std::vector<double>{1.79, 1.00, 0.65, 0.47})};

    qx::Formulas f({"T"});
    f.table("mu", makeInterpolator(water, 0, {.method = "linear", .extension = "error"}));
    const auto viscosity = f.add("mu(T)");
    const auto program = f.compile();

    const std::vector<double> T{10, 20, 55};
    std::vector<double> mu(3), slope(3);
    qx::Points p(3);
    p.set("T", T);
    program.gradient(p, viscosity, mu, {{"T", slope}});
    for (int i = 0; i < 3; ++i)
        std::printf("%.4f %.4f\n", mu[i], slope[i]);
}
