#pragma once

#include "qxexport.hpp"

#include <complex>
#include <string>
#include <vector>

/// The road from the numerical code back into the Java side of the platform.
class QX_API Callback
{
public:
    /// Calls an external function whose arguments are all texts; the result is one complex number.
    /// Raises "Internal_error_callback" (callback): the connection to the server of external functions is not there.
    static std::complex<double> evalText(const std::string& name, const std::vector<std::string>& args);
};
