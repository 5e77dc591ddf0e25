// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"

#include "dense/arrayutil_detail.hpp"
#include "qxexception.hpp"

#include <cctype>

namespace qxarray_detail {

int workSize(double answer)
{
    if (!(answer < 4294967295.0) || answer > INT_MAX)
        throw std::bad_alloc();
    return std::max(1, static_cast<int>(answer));
}

int judge(int info, int flags)
{
    if (info < 0 && (flags & RaiseNegative))
        QX_RAISE("arrayutil", "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
    return info;
}

int judge(int info, int flags, const Breakdown& breakdown)
{
    if (info > 0 && (flags & RaisePositive)) {
        if (breakdown.withValue)
            QX_RAISE("arrayutil", breakdown.id, breakdown.detail, info);
        QX_RAISE("arrayutil", breakdown.id, breakdown.detail);
    }
    return judge(info, flags);
}

bool isOption(const char* option, std::string_view letters)
{
    return *option != '\0' && letters.find(static_cast<char>(std::toupper(static_cast<unsigned char>(*option)))) !=
                                  std::string_view::npos;
}

} // namespace qxarray_detail

namespace qxarray {

// The services below keep no state that needs a start: the call stands for hosts that make it.
void initializeArray() {}

} // namespace qxarray
