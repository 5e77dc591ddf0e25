// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/ipopt/printfile.hpp"

#include <map>

namespace printfile {

namespace {

std::map<int, std::FILE*>& units()
{
    static std::map<int, std::FILE*> table;
    return table;
}

} // namespace

bool open(int unit, const std::string& name)
{
    close(unit);
    std::FILE*& place = units()[unit];
    place = std::fopen(name.c_str(), "a");
    if (place == nullptr)
        units().erase(unit);
    return find(unit) != nullptr;
}

void close(int unit)
{
    const auto found = units().find(unit);
    if (found == units().end())
        return;
    std::fclose(found->second);
    units().erase(found);
}

std::FILE* find(int unit)
{
    const auto found = units().find(unit);
    return found == units().end() ? nullptr : found->second;
}

} // namespace printfile
