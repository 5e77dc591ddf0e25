// Formulas as text: simplify, differentiate, print.
#include <exprtree.hpp>

#include <iostream>

int main()
{
    ExprTree f;
    f.scan("x*sin(a*x)");
    f.simp(false);      // to canonical form, which the next steps need
    f.diff("x");
    std::cout << f << '\n';
}
