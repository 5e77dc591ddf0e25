// SPDX-License-Identifier: LicenseRef-qxkernel
// The library that a Java program of the tests loads: tests/java_main/bridge/Main.java.
#include <callback.hpp>
#include <exprimpl.hpp>
#include <formulas.hpp>
#include <javaexception.hpp>
#include <qxjarray.hpp>

#include <jni.h>

#include <cmath>
#include <thread>

namespace {

/// "good", "wrong" or the identifier of the failure.
template <class Work>
jstring outcome(JNIEnv* env, Work&& work)
{
    std::string text;
    try {
        text = work() ? "good" : "wrong";
    } catch (const qxbase::Exception& e) {
        text = e.getId();
    }
    return qxbase::toJavaNew(env, text);
}

} // namespace

extern "C" {

JNIEXPORT jboolean JNICALL Java_bridge_Main_knowsMachine(JNIEnv* env, jclass)
{
    setInfixConverter(qxInfixToPrefix);
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    return qxbase::QxJCall::getVM() == vm;
}

JNIEXPORT jboolean JNICALL Java_bridge_Main_findsMachine(JNIEnv* env, jclass)
{
    qxbase::QxJCall::setVM(nullptr); // what was handed over when the library was loaded
    return Java_bridge_Main_knowsMachine(env, nullptr);
}

JNIEXPORT void JNICALL Java_bridge_Main_eventFromNativeThread(JNIEnv* env, jclass, jint code)
{
    qxbase::guardJava(env, {}, [&] {
        qxbase::Exception failure;
        std::thread([&] {
            try {
                Callback::solverCallback(code);
            } catch (const qxbase::Exception& e) {
                failure = e;
            }
        }).join();
        if (failure.size() != 0)
            throw failure;
    });
}

JNIEXPORT jstring JNICALL Java_bridge_Main_parentheses(JNIEnv* env, jclass, jint depth)
{
    return outcome(env, [&] {
        const auto n = static_cast<std::size_t>(depth);
        qx::Formulas formulas({"x"});
        const qx::Formula f = formulas.add(std::string(n, '(') + "x+1" + std::string(n, ')'));
        const double x[] = {2};
        double out[] = {0};
        formulas.compile().evaluate(qx::Points(1).set("x", x), f, out);
        return out[0] == 3;
    });
}

JNIEXPORT jstring JNICALL Java_bridge_Main_derivative(JNIEnv* env, jclass, jint depth)
{
    return outcome(env, [&] {
        std::string text = "x";
        double value = 0.5, slope = 1;
        for (int k = 0; k < depth; ++k) {
            text = "sin(" + text + ")";
            slope *= std::cos(value);
            value = std::sin(value);
        }
        qx::Formulas formulas({"x"});
        const qx::Formula f = formulas.add(text);
        const double x[] = {0.5};
        double out[] = {0}, by[] = {0};
        formulas.compile().gradient(qx::Points(1).set("x", x), f, out, {{"x", by}});
        return std::fabs(by[0] - slope) <= 1e-9 * std::fabs(slope) && std::fabs(out[0] - value) < 1e-12;
    });
}

JNIEXPORT jintArray JNICALL Java_bridge_Main_backAndForth(JNIEnv* env, jclass, jintArray values, jint times)
{
    return qxbase::guardJava(env, {}, [&]() -> jintArray {
        std::vector<int> numbers;
        jintArray made = nullptr;
        for (int i = 0; i < times; ++i) {
            if (made)
                env->DeleteLocalRef(made);
            qxarray::toCpp(env, values, numbers);
            made = qxarray::toJavaNew(env, numbers);
        }
        return made;
    });
}

JNIEXPORT void JNICALL Java_bridge_Main_raise(JNIEnv* env, jclass, jstring identifier)
{
    qxbase::guardJava(env, {}, [&] { throw qxbase::Exception("javalib", __LINE__, qxbase::jStr2CppStr(env, identifier)); });
}

} // extern "C"
