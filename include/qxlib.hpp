// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <string>

namespace qxbase {

/// A shared library opened at run time; closed with the object.
///
/// The name is tried as it stands and then, if it ends in ".dylib", with ".so" instead. A name without a slash is looked
/// for where the dynamic linker looks, which includes the directory of this library.
class QX_API QxLib
{
public:
    /// global: its symbols serve libraries loaded later. Raises "Cannot_open_library" ("Library", "Reason").
    explicit QxLib(const std::string& name, bool global = false);
    ~QxLib();
    QxLib(const QxLib&) = delete;
    QxLib& operator=(const QxLib&) = delete;

    /// Address of an entry point, never null. Raises "Symbol_not_found_in_library" ("Library", "Symbol").
    void* getSymbolAddress(const std::string& name) const;

    /// The file name that was opened.
    const std::string& getName() const { return name_; }

private:
    std::string name_;
    void* handle_;
};

} // namespace qxbase
