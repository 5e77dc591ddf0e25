// A point without a value: the whole story as an exception, or a list of failures and NaN.
#include <formulas.hpp>

#include <cstdio>
#include <vector>

int main()
{
    qx::Formulas f({"x"});
    f.define("p", "erf(i*x)");              // erf takes real arguments only
    const auto formula = f.add("2*p");
    const auto program = f.compile();
    const std::vector<double> x{0.0, 3.0};
    std::vector<double> out(2);
    qx::Points points(2);
    points.set("x", x);

    try {
        program.evaluate(points, formula, out);
    } catch (const qxbase::Exception& e) {  // innermost entry first
        for (std::size_t k = 0; k < e.size(); ++k) {
            std::printf("%s:", e.getId(k).c_str());
            for (const auto& [key, value] : e.getArgs(k))
                std::printf(" %s=%s", key.c_str(), value.c_str());
            std::printf("\n");
        }
    }

    const auto failures = program.evaluate(points, formula, out, {.onFailure = qx::OnFailure::nan});
    std::printf("%zu failed, the first at point %zu; the other is %g\n", failures.count, failures.first[0].point, out[0]);
}
