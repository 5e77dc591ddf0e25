// SPDX-License-Identifier: LicenseRef-qxkernel
// The platform's own parser class as the converter from infix to prefix text.

#include "exprimpl_java_detail.hpp"

#include "base/qxjni_detail.hpp"
#include "exprimpl.hpp"
#include "qxexception.hpp"
#include "qxjni.hpp"

#include <jni.h>

namespace qxsymbolic {

namespace {

using qxbase::LocalRef;

constinit qxbase::StaticMethod parserMethod("com/quorix/parser/expr/ExprParser", "parseExprToInfix",
                                            "(Ljava/lang/String;ZZ)Ljava/lang/String;");

[[noreturn]] void raiseCallback(JNIEnv* env)
{
    if (env)
        env->ExceptionClear();
    QX_RAISE("exprimpl", "Internal_error_callback");
}

} // namespace

void forgetParserMethod() { parserMethod.forget(); }

std::string parseByJava(JNIEnv* env, const std::string& infix)
{
    if (!env)
        raiseCallback(env);
    const auto parser = parserMethod.find(env);
    if (!parser.id)
        raiseCallback(env);
    const LocalRef<jstring> text(env, qxbase::toJavaNew(env, infix));
    const jboolean yes = JNI_TRUE;
    const LocalRef<jstring> prefix(
        env, static_cast<jstring>(env->CallStaticObjectMethod(parser.type.get(), parser.id, text.get(), yes, yes)));
    if (!prefix.get())
        raiseCallback(env);
    return qxbase::jStr2CppStr(env, prefix.get());
}

} // namespace qxsymbolic

std::string qxInfixToPrefixByJava(const std::string& infix)
{
    const qxutil::AttachThread attached;
    return qxsymbolic::parseByJava(qxutil::VMData::getJNIEnv(), infix);
}
