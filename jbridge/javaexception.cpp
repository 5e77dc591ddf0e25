// SPDX-License-Identifier: LicenseRef-qxkernel
#include "javaexception.hpp"

#include "base/qxjni_detail.hpp"
#include "qxjni.hpp"

#include <exception>
#include <jni.h>
#include <new>

namespace qxbase {

namespace {

constexpr const char* runtimeException = "java/lang/RuntimeException";
constexpr const char* cancellation = "java/util/concurrent/CancellationException";
constexpr const char* outOfMemory = "java/lang/OutOfMemoryError";

using Thrown = LocalRef<jthrowable>;

/// The class and its constructor; an empty pair, and nothing pending, if there is none.
struct Constructor
{
    Constructor(JNIEnv* env, const char* name, const char* signature) : type(env, name ? findClass(env, name) : nullptr)
    {
        if (type)
            id = env->GetMethodID(type.get(), "<init>", signature);
        if (!id)
            env->ExceptionClear();
    }
    LocalRef<jclass> type;
    jmethodID id = nullptr;
};

LocalRef<jstring> text(JNIEnv* env, const std::string& utf8) { return {env, toJavaNew(env, utf8, PendingException::Keep)}; }

/// key, value, key, value ... of all entries.
LocalRef<jobjectArray> argumentsOf(JNIEnv* env, const Exception& failure)
{
    ExceptionArgs args;
    for (std::size_t i = 0; i < failure.size(); ++i)
        args.insert(args.end(), failure.getArgs(i).begin(), failure.getArgs(i).end());
    const LocalRef<jclass> type(env, findClass(env, "java/lang/String"));
    LocalRef<jobjectArray> array(env, type ? env->NewObjectArray(static_cast<jsize>(2 * args.size()), type.get(), nullptr) : nullptr);
    jsize at = 0;
    for (const auto& [key, value] : args)
        for (const std::string* part : {&key, &value}) {
            if (!array)
                return array;
            env->SetObjectArrayElement(array.get(), at++, text(env, *part).get());
            if (env->ExceptionCheck())
                array.clear();
        }
    return array;
}

/// An exception of the host's class; null if the class is not there or, with an exception pending, if Java fails.
Thrown hostException(JNIEnv* env, const char* name, const Exception& failure, jthrowable cause)
{
    const Constructor make(env, name, "(Ljava/lang/String;[Ljava/lang/String;Ljava/lang/String;Ljava/lang/Throwable;)V");
    if (!make.id)
        return {env, nullptr};
    const LocalRef<jstring> id = text(env, failure.getId());
    const LocalRef<jstring> story = text(env, failure.toString());
    const LocalRef<jobjectArray> args = argumentsOf(env, failure);
    if (!args)
        return {env, nullptr};
    return {env, static_cast<jthrowable>(env->NewObject(make.type.get(), make.id, id.get(), args.get(), story.get(), cause))};
}

/// One of Java's own exceptions, with a message and a cause.
Thrown plainException(JNIEnv* env, const char* name, const std::string& message, jthrowable cause)
{
    const Constructor make(env, name, "(Ljava/lang/String;)V");
    if (!make.id)
        return {env, nullptr};
    const LocalRef<jstring> what = text(env, message);
    Thrown made(env, static_cast<jthrowable>(env->NewObject(make.type.get(), make.id, what.get())));
    if (!made || !cause)
        return made;
    if (const jmethodID id = env->GetMethodID(make.type.get(), "initCause", "(Ljava/lang/Throwable;)Ljava/lang/Throwable;"))
        const LocalRef<jobject> same(env, env->CallObjectMethod(made.get(), id, cause));
    return made;
}

/// Takes the pending exception, lets make(cause) make another one, and throws that.
template <class Make>
void throwInstead(JNIEnv* env, Make&& make) noexcept
{
    const Thrown cause(env, env->ExceptionOccurred());
    env->ExceptionClear();
    try {
        const Thrown made = make(cause.get());
        if (made && !env->ExceptionCheck())
            env->Throw(made.get());
    } catch (...) { // no memory, here or there
    }
    if (env->ExceptionCheck())
        return;
    if (cause) {
        env->Throw(cause.get());
        return;
    }
    const LocalRef<jclass> type(env, env->FindClass(outOfMemory));
    if (type)
        env->ThrowNew(type.get(), "while a failure was handed to Java");
}

void throwFailure(JNIEnv* env, const Exception& failure, const char* hostClass, const char* javaClass) noexcept
{
    throwInstead(env, [&](jthrowable cause) {
        Thrown made = hostException(env, hostClass, failure, cause);
        if (!made && !env->ExceptionCheck())
            made.swap(plainException(env, javaClass, failure.toString(), cause));
        return made;
    });
}

} // namespace

void throwToJava(JNIEnv* env, const Exception& failure, const JavaFailureClasses& classes) noexcept
{
    if (dynamic_cast<const CancelException*>(&failure))
        throwFailure(env, failure, classes.cancelled, cancellation);
    else
        throwFailure(env, failure, classes.failure, runtimeException);
}

void throwToJava(JNIEnv* env, const JavaFailureClasses& classes) noexcept
{
    const auto unexpected = [&](const char* what) noexcept {
        try {
            throwToJava(env, Exception("javaexception", __LINE__, "Unexpected_exception", "What", what), classes);
        } catch (const std::bad_alloc&) {
            throwInstead(env, [&](jthrowable) { return Thrown(env, nullptr); });
        }
    };
    try {
        throw;
    } catch (const Exception& e) {
        throwToJava(env, e, classes);
    } catch (const std::bad_alloc&) {
        throwInstead(env, [&](jthrowable cause) { return plainException(env, outOfMemory, "native memory", cause); });
    } catch (const std::exception& e) {
        unexpected(e.what());
    } catch (...) {
        unexpected("unknown");
    }
}

} // namespace qxbase
