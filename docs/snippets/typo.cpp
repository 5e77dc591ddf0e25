// A misspelt name: the exception says where it stands and what may be meant.
#include <formulas.hpp>

#include <cstdio>

int main()
{
    qx::Formulas f({"pressure"});
    f.add("2*presure");
    try {
        f.compile();
    } catch (const qxbase::Exception& e) {
        for (const auto& [key, value] : e.getArgs(0))
            std::printf("%s: %s = %s\n", e.getId().c_str(), key.c_str(), value.c_str());
    }
}
