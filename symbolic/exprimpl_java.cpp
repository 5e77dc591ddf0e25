// The platform's own parser class as the converter from infix to prefix text.

#include "exprimpl_java_detail.hpp"

#include "exprimpl.hpp"
#include "qxexception.hpp"
#include "qxjni.hpp"

#include <atomic>
#include <jni.h>

namespace qxsymbolic {

namespace {

std::atomic<jmethodID> parserMethod{nullptr};

/// A local reference that ends with the scope.
template <class T>
class LocalRef
{
public:
    LocalRef(JNIEnv* env, T object) : env_(env), object_(object) {}
    ~LocalRef()
    {
        if (object_)
            env_->DeleteLocalRef(object_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;
    T get() const { return object_; }

private:
    JNIEnv* env_;
    T object_;
};

[[noreturn]] void raiseCallback(JNIEnv* env)
{
    if (env)
        env->ExceptionClear();
    QX_RAISE("exprimpl", "Internal_error_callback");
}

} // namespace

void forgetParserMethod() { parserMethod = nullptr; }

std::string parseByJava(JNIEnv* env, const std::string& infix)
{
    if (!env)
        raiseCallback(env);
    const LocalRef<jclass> parser(env, qxbase::findClass(env, "com/quorix/parser/expr/ExprParser"));
    if (!parser.get())
        raiseCallback(env);
    // Looked up once for the process; threads that race store the same value.
    jmethodID method = parserMethod;
    if (!method) {
        method = env->GetStaticMethodID(parser.get(), "parseExprToInfix", "(Ljava/lang/String;ZZ)Ljava/lang/String;");
        if (!method)
            raiseCallback(env);
        parserMethod = method;
    }
    const LocalRef<jstring> text(env, qxbase::toJavaNew(env, infix));
    const jboolean yes = JNI_TRUE;
    const LocalRef<jstring> prefix(
        env, static_cast<jstring>(env->CallStaticObjectMethod(parser.get(), method, text.get(), yes, yes)));
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
