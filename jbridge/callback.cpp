#include "callback.hpp"

#include "qxexception.hpp"

std::complex<double> Callback::evalText(const std::string& name, const std::vector<std::string>&)
{
    QX_RAISE("callback", "Internal_error_callback", "Name", name);
}
