// Threads: one program serves any number of them, and the values have the same bits for any number.
#include <formulas.hpp>

#include <cstdio>
#include <thread>
#include <vector>

int main()
{
    qx::Formulas f({"x"});
    const auto formula = f.add("exp(-x)*sin(3*x)");
    const auto program = f.compile();
    std::vector<double> x(50000);
    for (std::size_t i = 0; i < x.size(); ++i)
        x[i] = 1e-4 * static_cast<double>(i);
    qx::Points p(x.size());
    p.set("x", x);

    // The library's own threads: as many as it may use, or as many as you say.
    std::vector<double> one(x.size()), three(x.size());
    program.evaluate(p, formula, one, {.threads = 1});
    program.evaluate(p, formula, three, {.threads = 3});
    std::printf("same bits: %d\n", one == three);

    // Threads of yours: each with targets of its own.
    std::vector<std::vector<double>> mine(4, std::vector<double>(x.size()));
    std::vector<std::thread> threads;
    for (auto& out : mine)
        threads.emplace_back([&] { program.evaluate(p, formula, out, {.threads = 1}); });
    for (auto& t : threads)
        t.join();
    std::printf("same bits: %d\n", mine[0] == one && mine[1] == one && mine[2] == one && mine[3] == one);
}
