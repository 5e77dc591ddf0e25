// SPDX-License-Identifier: LicenseRef-qxkernel
// A host in small: raises and catches the library's failure across its boundary, calls into it, uses a header-only part.
#include <qxexception.hpp>
#include <qxhash.hpp>
#include <qxnumber.hpp>
#include <qxversion.hpp>

#include <cstdio>
#include <string>

int main()
{
    QxHashMap<double, std::string> values;
    values.insert("half", qxutil::parseDouble("0.5"));
    const bool reads = qxutil::toString(values.at(values.lookup("half").slot)) == "0.5";

    bool raises = false;
    try {
        qxutil::parseDouble("half");
    } catch (const qxbase::Exception& e) {
        raises = e.getId() == "Text_is_not_a_number";
    }

    std::printf("%s reads: %d, raises: %d\n", qxkernel::version(), reads, raises);
    return reads && raises ? 0 : 1;
}
