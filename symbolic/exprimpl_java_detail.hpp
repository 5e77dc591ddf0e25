// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <jni.h>
#include <string>

namespace qxsymbolic {

/// Prefix text by com/quorix/parser/expr/ExprParser.parseExprToInfix(infix, true, true) in that environment.
/// Raises "Internal_error_callback" for a null environment, a missing class or method, and a null result, pending Java
/// exceptions cleared first; "JNI_exception" if the text cannot be handed over.
std::string parseByJava(JNIEnv* env, const std::string& infix);

/// Drops the process-wide method identifier: it belongs to one virtual machine, and tests have several.
void forgetParserMethod();

} // namespace qxsymbolic
