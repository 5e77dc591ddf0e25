// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxlib.hpp"

#include "qxexception.hpp"

#include <string_view>

#include <dlfcn.h>

namespace qxbase {

namespace {

std::string lastError()
{
    const char* text = dlerror();
    return text ? text : "";
}

} // namespace

QxLib::QxLib(const std::string& name, bool global) : name_(name)
{
    constexpr std::string_view foreign = ".dylib";
    if (name.empty()) // dlopen would give the main program
        QX_RAISE("qxlib", "Cannot_open_library", ExceptionArgs{{"Library", ""}, {"Reason", "no name"}});
    const int mode = RTLD_NOW | (global ? RTLD_GLOBAL : RTLD_LOCAL);
    handle_ = dlopen(name_.c_str(), mode);
    if (handle_)
        return;
    std::string reason = lastError();
    if (name.ends_with(foreign)) {
        name_.replace(name.size() - foreign.size(), foreign.size(), ".so");
        handle_ = dlopen(name_.c_str(), mode);
        if (handle_)
            return;
        reason += "; " + lastError();
    }
    QX_RAISE("qxlib", "Cannot_open_library", ExceptionArgs{{"Library", name}, {"Reason", reason}});
}

QxLib::~QxLib() { dlclose(handle_); }

void* QxLib::getSymbolAddress(const std::string& name) const
{
    void* address = dlsym(handle_, name.c_str());
    if (!address)
        QX_RAISE("qxlib", "Symbol_not_found_in_library", ExceptionArgs{{"Library", name_}, {"Symbol", name}});
    return address;
}

} // namespace qxbase
