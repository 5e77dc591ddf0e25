// SPDX-License-Identifier: LicenseRef-qxkernel
// The two Java methods that callbacks end in.

#include "callback.hpp"

#include "jbridge/callback_detail.hpp"

#include "base/qxjni_detail.hpp"
#include "qxjni.hpp"

#include <algorithm>
#include <jni.h>

using qxbase::LocalRef;

namespace {

constinit qxbase::StaticMethod solverEvent("com/quorix/solver/SolverCallback", "eval", "(I)V");
constinit qxbase::StaticMethod matlabFunction("com/quorix/server/MatlabEvaluator", "evalMat", "(Ljava/lang/String;[D[D)I");

/// Java text; the failure of making one is this module's.
jstring newName(JNIEnv* env, const std::string& name)
{
    try {
        return qxbase::toJavaNew(env, name, qxbase::PendingException::Keep);
    } catch (const qxbase::Exception&) {
        return nullptr;
    }
}

} // namespace

int qxcallback::callMatlab(JNIEnv* env, const std::string& name, const Input& in, const Output& out)
{
    const auto fail = [&](const char* id) { raiseCallback(env, id, {{"Function", name}}); };
    if (!env || env->ExceptionCheck())
        fail(internalError);
    const jsize nIn = totalOf(in), nOut = totalOf(out);

    const LocalRef<jdoubleArray> jIn(env, env->NewDoubleArray(nIn));
    if (!jIn)
        fail(internalError);
    const LocalRef<jdoubleArray> jOut(env, env->NewDoubleArray(nOut));
    if (!jOut)
        fail(internalError);
    jsize at = 0;
    for (const auto& piece : in) {
        if (piece.size != 0)
            env->SetDoubleArrayRegion(jIn.get(), at, static_cast<jsize>(piece.size), piece.data);
        if (env->ExceptionCheck())
            fail(internalError);
        at += static_cast<jsize>(piece.size);
    }

    auto method = matlabFunction.find(env);
    if (!method.id)
        fail(internalError);
    LocalRef<jstring> jName(env, newName(env, name));
    if (!jName)
        fail(internalError);
    const jint status = env->CallStaticIntMethod(method.type.get(), method.id, jName.get(), jIn.get(), jOut.get());
    jName.clear();
    method.type.clear();
    if (env->ExceptionCheck())
        fail("Error_in_callback");

    at = 0;
    for (const auto& piece : out) {
        if (piece.size != 0)
            env->GetDoubleArrayRegion(jOut.get(), at, static_cast<jsize>(piece.size), piece.data);
        if (env->ExceptionCheck())
            fail(internalError);
        at += static_cast<jsize>(piece.size);
    }
    return status;
}

int qxcallback::callMatlab(const std::string& name, const Input& in, const Output& out)
{
    const qxutil::AttachThread attached;
    return callMatlab(qxutil::VMData::getJNIEnv(), name, in, out);
}

// ---- the story of a Java exception

namespace {

/// Calls a method without arguments that gives an object; null, and nothing pending, if that fails.
template <class J>
LocalRef<J> ask(JNIEnv* env, jobject object, const char* method, const char* signature)
{
    J answer = nullptr;
    {
        const LocalRef<jclass> type(env, env->GetObjectClass(object));
        if (const jmethodID id = env->GetMethodID(type.get(), method, signature))
            answer = static_cast<J>(env->CallObjectMethod(object, id));
    }
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        answer = nullptr;
    }
    return {env, answer};
}

std::string textOf(JNIEnv* env, jobject object)
{
    const LocalRef<jstring> text = ask<jstring>(env, object, "toString", "()Ljava/lang/String;");
    return text ? qxbase::jStr2CppStr(env, text.get()) : std::string();
}

} // namespace

qxbase::ExceptionArgs qxcallback::takeStory(JNIEnv* env) noexcept
{
    constexpr jsize kLines = 20;
    qxbase::ExceptionArgs story;
    const LocalRef<jthrowable> thrown(env, env->ExceptionOccurred());
    env->ExceptionClear();
    if (!thrown)
        return story;
    try {
        story.emplace_back("Exception", textOf(env, thrown.get()));
        const auto stack = ask<jobjectArray>(env, thrown.get(), "getStackTrace", "()[Ljava/lang/StackTraceElement;");
        const jsize n = stack ? std::min(kLines, env->GetArrayLength(stack.get())) : 0;
        for (jsize i = 0; i < n; ++i) {
            const LocalRef<jobject> line(env, env->GetObjectArrayElement(stack.get(), i));
            if (env->ExceptionCheck() || !line)
                break;
            story.emplace_back("Stack", textOf(env, line.get()));
        }
    } catch (const qxbase::Exception&) { // the story is as long as it is
    } catch (const std::bad_alloc&) {
    }
    if (env->ExceptionCheck())
        env->ExceptionClear();
    return story;
}

void qxcallback::forgetMethods()
{
    solverEvent.forget();
    matlabFunction.forget();
}

void qxcallback::raiseCallback(JNIEnv* env, const char* id, qxbase::ExceptionArgs args)
{
    if (env)
        for (auto& line : takeStory(env))
            args.push_back(std::move(line));
    QX_RAISE("callback", id, args);
}

void Callback::solverCallback(int code)
{
    qxcallback::guarded([&] {
        const qxutil::AttachThread attached;
        JNIEnv* env = qxutil::VMData::getJNIEnv();
        if (!env || env->ExceptionCheck())
            qxcallback::raiseCallback(env, qxcallback::internalError);
        auto method = solverEvent.find(env);
        if (!method.id)
            qxcallback::raiseCallback(env, qxcallback::internalError);
        env->CallStaticVoidMethod(method.type.get(), method.id, static_cast<jint>(code));
        method.type.clear();
        if (env->ExceptionCheck())
            qxcallback::raiseCallback(env, qxcallback::internalError);
    });
}
