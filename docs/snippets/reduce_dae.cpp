// A pendulum in Cartesian coordinates: no equation gives the rod force p, the index is 3. Reduced, it can be integrated.
#include <dae.hpp>
#include <exprimpl.hpp>
#include <qxexception.hpp>

#include <iostream>

int main()
try {
    Dae dae("t");
    for (const char* unknown : {"p", "y", "x"}) // what is to be integrated comes last: x
        dae.addVar(unknown);
    dae.addEq("+ * m (DIFF) (DIFF) x t t * p x");                 // m x'' + p x = 0, as prefix text
    dae.addEq("+ + * m (DIFF) (DIFF) y t t * p y * m g");         // m y'' + p y + m g = 0
    dae.addEq(qxInfixToPrefix("x^2+y^2-l^2"));                    // m, g and l were not added: parameters

    dae.reduceIndex();

    for (std::size_t i = 0; i < dae.getEqs().size(); ++i)
        std::cout << dae.getEq(static_cast<int>(i)) << '\n';
    std::cout << "unknowns:";
    for (std::size_t i = 0; i < dae.getVars().size(); ++i)
        std::cout << ' ' << dae.getVarName(static_cast<int>(i));
    std::cout << '\n';
} catch (const qxbase::Exception& e) {
    std::cerr << e.toString(); // names the equations and unknowns that do not fit
    return 1;
}
