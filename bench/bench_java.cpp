// SPDX-License-Identifier: LicenseRef-qxkernel
// The bridge to Java in a real virtual machine, against hand-written JNI that does the same, memcpy, and Java itself.
// The machine has a heap of 1 GB and does not check calls.
#include "evaluation_host.hpp"
#include "harness.hpp"

#include "callback.hpp"
#include "externfun.hpp"
#include "exprimpl.hpp"
#include "qxjarray.hpp"

#include <cmath>
#include <cstring>
#include <iostream>
#include <string>

#include <dlfcn.h>
#include <jni.h>

namespace {

JNIEnv* startJava()
{
    for (const char* home : {static_cast<const char*>(std::getenv("JAVA_HOME")), "/usr/lib/jvm/default-java"}) {
        void* library = home ? dlopen((std::string(home) + "/lib/server/libjvm.so").c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
        if (!library)
            continue;
        const auto create = reinterpret_cast<jint (*)(JavaVM**, void**, void*)>(dlsym(library, "JNI_CreateJavaVM"));
        std::string path = "-Djava.class.path=" QX_BENCH_CLASSES, heap = "-Xmx1g", collector = "-XX:+UseSerialGC";
        JavaVMOption options[] = {{path.data(), nullptr}, {heap.data(), nullptr}, {collector.data(), nullptr}};
        JavaVMInitArgs arguments{JNI_VERSION_1_8, 3, options, JNI_FALSE};
        JavaVM* vm = nullptr;
        void* env = nullptr;
        if (create(&vm, &env, &arguments) == JNI_OK)
            return static_cast<JNIEnv*>(env);
    }
    return nullptr;
}

void stopIfPending(JNIEnv* env)
{
    if (env->ExceptionCheck()) {
        env->ExceptionDescribe();
        std::exit(1);
    }
}

template <class A>
A keepGlobally(JNIEnv* env, A local)
{
    auto global = static_cast<A>(env->NewGlobalRef(local));
    env->DeleteLocalRef(local);
    return global;
}

double maxDifference(const double* a, const double* b, std::size_t n)
{
    double worst = 0;
    for (std::size_t i = 0; i < n; ++i)
        worst = std::max(worst, std::fabs(a[i] - b[i]));
    return worst;
}

// ---- arrays, as one writes them by hand

void readRows(JNIEnv* env, jobjectArray rows, Array<double, 2>& to)
{
    const jsize m = env->GetArrayLength(rows);
    std::vector<double> row(to.extent(1));
    for (jsize i = 0; i < m; ++i) {
        auto line = static_cast<jdoubleArray>(env->GetObjectArrayElement(rows, i));
        env->GetDoubleArrayRegion(line, 0, static_cast<jsize>(row.size()), row.data());
        for (std::size_t j = 0; j < row.size(); ++j)
            to(static_cast<unsigned long>(i), j) = row[j];
        env->DeleteLocalRef(line);
    }
}

jobjectArray writeRows(JNIEnv* env, const Array<double, 2>& from)
{
    jclass type = env->FindClass("[D");
    const auto m = static_cast<jsize>(from.extent(0)), n = static_cast<jsize>(from.extent(1));
    jobjectArray rows = env->NewObjectArray(m, type, nullptr);
    std::vector<double> row(from.extent(1));
    for (jsize i = 0; i < m; ++i) {
        jdoubleArray line = env->NewDoubleArray(n);
        for (jsize j = 0; j < n; ++j)
            row[static_cast<std::size_t>(j)] = from(static_cast<unsigned long>(i), static_cast<unsigned long>(j));
        env->SetDoubleArrayRegion(line, 0, n, row.data());
        env->SetObjectArrayElement(rows, i, line);
        env->DeleteLocalRef(line);
    }
    env->DeleteLocalRef(type);
    return rows;
}

void matrices(JNIEnv* env)
{
    Array<double, 2> source(10000, 100), mine(10000, 100), theirs(10000, 100);
    for (unsigned long i = 0; i < source.size(); ++i)
        source[i] = static_cast<double>(i);
    jobjectArray rows = keepGlobally(env, qxarray::toJavaNew(env, source));
    const auto difference = [&] {
        return maxDifference(mine.data(), source.data(), source.size()) + maxDifference(theirs.data(), source.data(), source.size());
    };

    BENCH("arrays/double[10000][100] to columns")
        .ours([&] { qxarray::toCpp(env, rows, mine); })
        .peer("region copies by hand", [&] { readRows(env, rows, theirs); })
        .check(difference, 0.0)
        .atMost(1.05)
        .fastest();
    BENCH("arrays/columns to double[10000][100]")
        .ours([&] { env->DeleteLocalRef(qxarray::toJavaNew(env, source)); })
        .peer("region copies by hand", [&] { env->DeleteLocalRef(writeRows(env, source)); })
        .atMost(1.05)
        .fastest();
    env->DeleteGlobalRef(rows);
}

void vectors(JNIEnv* env)
{
    constexpr jsize n = 10000000;
    Array<double, 1> source(n), target(n), copy(n);
    for (jsize i = 0; i < n; ++i)
        source[static_cast<unsigned long>(i)] = i;
    copy = 0.0;
    target = 0.0;
    jdoubleArray array = keepGlobally(env, qxarray::toJavaNew(env, source));
    jdoubleArray there = array;
    const auto difference = [&] { return maxDifference(target.data(), source.data(), n); };

    BENCH("arrays/double[10^7] to an array that is there")
        .ours([&] { qxarray::toCpp(env, array, target); })
        .peer("memcpy", [&] { std::memcpy(copy.data(), source.data(), sizeof(double) * n); })
        .check(difference, 0.0)
        .atMost(1.3)
        .fastest();
    BENCH("arrays/10^7 numbers to a double[] that is there")
        .ours([&] { qxarray::toJavaExisting(env, source, there); })
        .peer("memcpy", [&] { std::memcpy(copy.data(), source.data(), sizeof(double) * n); })
        .atMost(1.3)
        .fastest();
    BENCH("arrays/double[10^7] to a new array")
        .ours([&] {
            Array<double, 1> fresh;
            qxarray::toCpp(env, array, fresh);
            qxbench::keep(fresh.data());
        })
        .peer("region copy by hand",
              [&] {
                  Array<double, 1> fresh(n);
                  env->GetDoubleArrayRegion(array, 0, n, fresh.data());
                  qxbench::keep(fresh.data());
              })
        .atMost(1.05)
        .fastest();
    BENCH("arrays/10^7 numbers to a new double[]")
        .ours([&] { env->DeleteLocalRef(qxarray::toJavaNew(env, source)); })
        .peer("region copy by hand",
              [&] {
                  jdoubleArray fresh = env->NewDoubleArray(n);
                  env->SetDoubleArrayRegion(fresh, 0, n, source.data());
                  env->DeleteLocalRef(fresh);
              })
        .atMost(1.05)
        .fastest();
    env->DeleteGlobalRef(array);
}

// ---- functions of formulas

void function(JNIEnv* env, const std::string& name, double goalJava, double goalByHand)
{
    constexpr jsize n = 100000;
    std::vector<double> x(n), byHand(n), direct(n);
    for (jsize i = 0; i < n; ++i)
        x[static_cast<std::size_t>(i)] = 3.0 * i / n;
    const auto allocator = boost::make_shared<SerialArrayAllocator>(n, 10 * n);
    const auto host = boost::make_shared<qxbench::ColumnHost>(n, allocator);
    host->addColumn("x", x.data(), n);
    host->addFunction(boost::make_shared<ExternFun>(name, 1));
    const auto cache = boost::make_shared<qxbench::ColumnCache>(host, allocator);
    EvalTree tree(name + "(x)", false);
    tree.parse(host);
    ValRepPtr value;

    jclass functions = keepGlobally(env, env->FindClass("bench/Functions"));
    jclass matlab = keepGlobally(env, env->FindClass("com/quorix/server/MatlabEvaluator"));
    jmethodID eval = env->GetStaticMethodID(functions, "eval", "(Z[D[D)I");
    jmethodID evalMat = env->GetStaticMethodID(matlab, "evalMat", "(Ljava/lang/String;[D[D)I");
    jdoubleArray in = keepGlobally(env, qxarray::toJavaNew(env, x)), out = keepGlobally(env, env->NewDoubleArray(n));
    stopIfPending(env);
    const auto callByHand = [&] {
        jdoubleArray jIn = env->NewDoubleArray(n), jOut = env->NewDoubleArray(n);
        env->SetDoubleArrayRegion(jIn, 0, n, x.data());
        jstring jName = env->NewStringUTF(name.c_str());
        env->CallStaticIntMethod(matlab, evalMat, jName, jIn, jOut);
        stopIfPending(env);
        env->GetDoubleArrayRegion(jOut, 0, n, byHand.data());
        env->DeleteLocalRef(jName);
        env->DeleteLocalRef(jIn);
        env->DeleteLocalRef(jOut);
    };
    const auto callDirectly = [&] {
        env->CallStaticIntMethod(functions, eval, static_cast<jboolean>(name == "damped"), in, out);
        stopIfPending(env);
    };
    for (int warm = 0; warm < 200; ++warm) { // until Java has compiled the function
        callByHand();
        callDirectly();
    }

    BENCH("functions/" + name + "(x) over 10^5 points")
        .ours([&] { value = tree.eval(host, cache, EvalValues | EvalKeepReal); })
        .peer("called from Java", callDirectly)
        .check(
            [&] {
                env->GetDoubleArrayRegion(out, 0, n, direct.data());
                return maxDifference(value->getDoubleIterator(0), direct.data(), n);
            },
            0.0)
        .atMost(goalJava)
        .peer("JNI by hand", callByHand)
        .check([&] { return maxDifference(value->getDoubleIterator(0), byHand.data(), n); }, 0.0)
        .atMost(goalByHand)
        .items(n, "points")
        .fastest();
    for (jobject global : {jobject(functions), jobject(matlab), jobject(in), jobject(out)})
        env->DeleteGlobalRef(global);
}

// ---- events

void events(JNIEnv* env)
{
    constexpr int n = 100000;
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    jclass solver = keepGlobally(env, env->FindClass("com/quorix/solver/SolverCallback"));
    jmethodID eval = env->GetStaticMethodID(solver, "eval", "(I)V");
    const auto byHand = [&] {
        for (int i = 0; i < n; ++i) {
            void* mine = nullptr;
            vm->GetEnv(&mine, JNI_VERSION_1_8);
            auto* own = static_cast<JNIEnv*>(mine);
            jclass type = own->FindClass("com/quorix/solver/SolverCallback");
            own->CallStaticVoidMethod(type, eval, i);
            own->DeleteLocalRef(type);
            stopIfPending(own);
        }
    };
    const auto bare = [&] {
        for (int i = 0; i < n; ++i)
            env->CallStaticVoidMethod(solver, eval, i);
    };
    for (int warm = 0; warm < 3; ++warm) {
        byHand();
        bare();
    }

    BENCH("events/10^5 calls of solverCallback")
        .ours([] {
            for (int i = 0; i < n; ++i)
                Callback::solverCallback(i);
        })
        .peer("the same calls by hand", byHand)
        .atMost(1.1)
        .peer("CallStaticVoidMethod alone", bare)
        .atMost(3.5)
        .items(n, "calls")
        .fastest();
    env->DeleteGlobalRef(solver);
}

} // namespace

void qxbench::benchmarks()
{
    JNIEnv* env = startJava();
    if (!env) {
        std::cout << "no Java on this machine\n";
        return;
    }
    setInfixConverter(qxInfixToPrefix);
    matrices(env);
    vectors(env);
    function(env, "damped", 1.6, 1.1); // sin(x)*exp(-x)
    function(env, "parabola", 0.0, 0.0); // x^2+1: little work, so that the copies show; no goal
    events(env);
}
