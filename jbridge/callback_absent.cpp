// SPDX-License-Identifier: LicenseRef-qxkernel
// Callbacks in a build without Java: they fail as they do where no virtual machine is, and say why.

#include "callback.hpp"

#include "jbridge/callback_detail.hpp"

#include "base/qxjni_absent_detail.hpp"

void qxcallback::raiseCallback(JNIEnv_*, const char* id, qxbase::ExceptionArgs args) { QX_RAISE("callback", id, args); }

int qxcallback::callMatlab(JNIEnv_*, const std::string& name, const Input& in, const Output& out)
{
    return callMatlab(name, in, out);
}

int qxcallback::callMatlab(const std::string& name, const Input&, const Output&)
{
    raiseCallback(nullptr, internalError, {{"Function", name}, {"Reason", qxbase::builtWithoutJava}});
}

void Callback::solverCallback(int) { qxcallback::raiseCallback(nullptr, qxcallback::internalError, {{"Reason", qxbase::builtWithoutJava}}); }
