#include <evalconst.hpp>
#include <exprtree.hpp>
#include <iostream>

int main()
{
    const EvalConst air({"R=8.314", "T=273.15+20", "p=101325"});
    std::cout << air.evalExpr("0.02897*p/(R*T)") << " kg/m^3\n"; // a formula with constants

    ExprTree f;
    f.scan("x*sin(a*x)");
    f.simp(false);
    f.diff("x"); // the symbolic derivative
    std::cout << f << '\n';
}
