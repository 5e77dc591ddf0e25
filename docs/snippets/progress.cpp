// Progress of a long run, and how to stop it.
#include <formulas.hpp>
#include <qxrun.hpp>

#include <cstdio>
#include <vector>

struct Watcher : qxutil::RunListener
{
    qxutil::RunInfo* run = nullptr;
    bool impatient = true;
    void onProgress(const std::string&, double fraction) override
    {
        if (impatient && fraction >= 0.25)
            run->cancel();                   // from any thread, at any time
    }
};

int main()
{
    qx::Formulas f({"x"});
    const auto formula = f.add("sin(x)^2");
    const auto program = f.compile();
    const std::vector<double> x(100000, 1.0);
    std::vector<double> out(x.size());
    qx::Points p(x.size());
    p.set("x", x);

    Watcher watcher;
    qxutil::RunInfo run(&watcher);
    watcher.run = &run;
    try {
        program.evaluate(p, formula, out, {.threads = 1, .run = &run});
    } catch (const qxbase::CancelException&) { // catch it before Exception
        std::printf("stopped\n");
    }

    run.cancel(false);                       // everything can be used again
    watcher.impatient = false;
    program.evaluate(p, formula, out, {.run = &run});
    std::printf("%.6f\n", out[99999]);
}
