// SPDX-License-Identifier: LicenseRef-qxkernel
// Calls into Java behind an environment that stages each failure. The same with a real virtual machine: callback_vm_test.cpp.
#include "callback.hpp"

#include "jbridge/callback_detail.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"
#include "support/fake_java.hpp"
#include "support/fake_vm.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace qxtest;
using cplx = std::complex<double>;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* internal = "Internal_error_callback";

/// A Java side with both classes; evalMat is a function of this test.
class CallbackJava : public FakeJava
{
public:
    CallbackJava()
    {
        table.GetStaticMethodID = [](JNIEnv* env, jclass, const char* name, const char* signature) -> jmethodID {
            ++me(env).lookups;
            return me(env).fails("GetStaticMethodID") ? nullptr
                                                      : me(env).method(std::string(name) + signature);
        };
        table.CallStaticVoidMethodV = [](JNIEnv* env, jclass, jmethodID id, va_list arguments) {
            const int code = va_arg(arguments, int);
            if (me(env).fails("CallStaticVoidMethod"))
                return;
            EXPECT_EQ(id, me(env).method("eval(I)V"));
            me(env).events.push_back(code);
        };
        table.CallStaticIntMethodV = [](JNIEnv* env, jclass, jmethodID id, va_list arguments) -> jint {
            if (me(env).fails("CallStaticIntMethod"))
                return 0;
            EXPECT_EQ(id, me(env).method("evalMat(Ljava/lang/String;[D[D)I"));
            auto* name = va_arg(arguments, jobject);
            auto* in = va_arg(arguments, jobject);
            auto* out = va_arg(arguments, jobject);
            me(env).function = me(env).textOf(name);
            me(env).sent = me(env).valuesOf<double>(in);
            std::vector<double> results = me(env).valuesOf<double>(out);
            if (me(env).evalMat)
                me(env).evalMat(me(env).sent, results);
            me(env).setNumbers(out, results);
            return me(env).status;
        };
        table.ExceptionOccurred = [](JNIEnv* env) -> jthrowable {
            me(env).allowed("ExceptionOccurred");
            return me(env).pending ? static_cast<jthrowable>(me(env).local(me(env).thrown)) : nullptr;
        };
        table.ExceptionClear = [](JNIEnv* env) {
            me(env).allowed("ExceptionClear");
            me(env).pending = false;
        };
        table.GetObjectClass = [](JNIEnv* env, jobject) -> jclass {
            me(env).cannotFail("GetObjectClass");
            return static_cast<jclass>(me(env).local(me(env).classNamed("java/lang/OutOfMemoryError")));
        };
        table.GetMethodID = [](JNIEnv* env, jclass, const char* name, const char* signature) -> jmethodID {
            return me(env).fails("GetMethodID") ? nullptr : me(env).method(std::string(name) + signature);
        };
        table.CallObjectMethodV = [](JNIEnv* env, jobject, jmethodID id, va_list) -> jobject {
            if (me(env).fails("CallObjectMethod"))
                return nullptr;
            return id == me(env).method("toString()Ljava/lang/String;") ? me(env).local(me(env).text(u"it broke"))
                                                                         : me(env).local(me(env).stack);
        };
        thrown = text(u"");
        stack = objects("[Ljava/lang/StackTraceElement;", Objects(25, thrown));
        qxcallback::forgetMethods(); // they belong to one virtual machine
    }
    ~CallbackJava() { qxcallback::forgetMethods(); }

    jmethodID method(const std::string& name)
    {
        return reinterpret_cast<jmethodID>(const_cast<std::string*>(&*methods_.insert(name).first));
    }

    std::function<void(const std::vector<double>&, std::vector<double>&)> evalMat;
    int status = 0;
    int lookups = 0;
    std::vector<int> events;
    std::string function; ///< the name that evalMat got
    std::vector<double> sent;
    jobject thrown, stack;

private:
    static CallbackJava& me(JNIEnv* env) { return static_cast<CallbackJava&>(of(env)); }
    std::set<std::string> methods_;
};

class CallbackTest : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(java().liveRefs, 0);
        EXPECT_FALSE(java().pending);
        EXPECT_THAT(java().breaches, IsEmpty());
        EXPECT_FALSE(vm.attached) << "attached for the call only";
    }
    CallbackJava& java() { return vm.jni; }
    JNIEnv* env() { return vm.jni.env(); }

    FakeVM<CallbackJava> vm;
};

template <class T>
boost::shared_ptr<Array<T, 2>> matrix(unsigned long m, unsigned long n, const std::vector<T>& values)
{
    auto a = boost::make_shared<Array<T, 2>>(m, n);
    std::copy(values.begin(), values.end(), a->begin());
    return a;
}

template <class T>
boost::shared_ptr<Array<T, 1>> array(const std::vector<T>& values)
{
    auto a = boost::make_shared<Array<T, 1>>(values.size());
    std::copy(values.begin(), values.end(), a->begin());
    return a;
}

} // namespace

// ---- without a virtual machine: this process has none

TEST(CallbackWithoutJava, RaisesAnInternalError)
{
    std::vector<double> out(1);
    double x = 2;
    cplx z = 2;

    EXPECT_EQ(idOf([] { Callback::solverCallback(1); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", {1.0}, out, nullptr); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", Callback::Args(), Callback::Args()); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalDblMat("f", {&x}, 1, &x); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalDCmplxMat("f", {&z}, 1, &z); }), internal);
    EXPECT_EQ(x, 2);
}

// ---- events

TEST_F(CallbackTest, EventsReachTheSolverClass)
{
    Callback::solverCallback(3);
    Callback::solverCallback(-1);

    EXPECT_THAT(java().events, ElementsAre(3, -1));
    EXPECT_EQ(java().lookups, 1) << "the method is looked up once";
    EXPECT_THAT(vm.calls, ElementsAre("attach", "detach", "attach", "detach"));
}

TEST_F(CallbackTest, AnAttachedThreadStaysAttached)
{
    vm.attached = true;

    Callback::solverCallback(3);

    EXPECT_TRUE(vm.attached);
    vm.attached = false;
}

TEST_F(CallbackTest, TheClassReferenceGoesBeforeTheExceptionIsLookedAt)
{
    Callback::solverCallback(3);

    const auto& calls = java().calls;
    const auto call = std::find(calls.begin(), calls.end(), "ExceptionCheck");
    ASSERT_GE(calls.size(), 2u);
    EXPECT_NE(call, calls.end());
    EXPECT_EQ(calls[calls.size() - 1], "ExceptionCheck");
    EXPECT_EQ(calls[calls.size() - 2], "DeleteLocalRef");
}

TEST_F(CallbackTest, AFailingEventIsAnInternalErrorThatTellsTheJavaException)
{
    Callback::solverCallback(0); // class and method are known now
    java().failCall(2);          // FindClass, then the call

    const qxbase::Exception e = failureOf([] { Callback::solverCallback(1); });

    EXPECT_EQ(e.getId(), internal);
    ASSERT_EQ(e.getArgs(0).size(), 21u) << "toString() and 20 of the 25 lines";
    EXPECT_EQ(e.getArgs(0)[0], (std::pair<std::string, std::string>("Exception", "it broke")));
    EXPECT_EQ(e.getArgs(0)[20], (std::pair<std::string, std::string>("Stack", "it broke")));
}

TEST_F(CallbackTest, AnExceptionPendingBeforehandIsAnInternalError)
{
    std::vector<double> out(1);
    vm.attached = true;
    java().pending = true;
    EXPECT_EQ(idOf([] { Callback::solverCallback(1); }), internal);
    java().pending = true;
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", {}, out, env()); }), internal);
    vm.attached = false;
    EXPECT_THAT(java().events, IsEmpty());
}

TEST_F(CallbackTest, AMachineThatRefusesTheThreadIsAnInternalError)
{
    vm.refuses = true;
    EXPECT_EQ(idOf([] { Callback::solverCallback(1); }), internal);
}

// ---- functions on numbers

TEST_F(CallbackTest, NumbersGoThereAndBack)
{
    for (std::size_t n : {0u, 1u, 1000u}) {
        std::vector<double> in(n), out(n, -1.0);
        for (std::size_t i = 0; i < n; ++i)
            in[i] = double(i);
        java().evalMat = [](const auto& x, auto& y) {
            for (std::size_t i = 0; i < y.size(); ++i)
                y[i] = 2 * x[i];
        };
        java().status = 17;

        EXPECT_EQ(Callback::evalMat("T\xc3\xa9", in, out, env()), 17) << "the status is passed through";

        EXPECT_EQ(java().function, "T\xc3\xa9");
        EXPECT_EQ(java().sent, in);
        ASSERT_EQ(out.size(), n);
        for (std::size_t i = 0; i < n; ++i)
            EXPECT_EQ(out[i], 2.0 * double(i));
    }
    EXPECT_EQ(java().lookups, 1);
}

TEST_F(CallbackTest, NameAndClassReferencesGoBeforeTheExceptionIsLookedAt)
{
    std::vector<double> out;
    Callback::evalMat("f", {}, out, env());

    const auto& calls = java().calls;
    auto at = std::find(calls.begin(), calls.end(), "CallStaticIntMethod");
    ASSERT_GE(calls.end() - at, 4);
    EXPECT_EQ(at[1], "DeleteLocalRef");
    EXPECT_EQ(at[2], "DeleteLocalRef");
    EXPECT_EQ(at[3], "ExceptionCheck");
}

TEST_F(CallbackTest, EveryFailingCallRaisesAndLeavesTheResultAsItWas)
{
    int thrown = 0;
    for (int n = 1;; ++n) {
        std::vector<double> out = {5, 6};
        qxcallback::forgetMethods();
        java().calls.clear();
        CallbackJava& j = java();
        j.failCall(n);
        const bool before = j.failed();

        const qxbase::Exception e = failureOf([&] { Callback::evalMat("f", {1, 2}, out, env()); });

        (void)before;
        if (e.size() == 0)
            break;
        const bool inJava = std::find(j.calls.begin(), j.calls.end(), "CallStaticIntMethod") != j.calls.end()
                            && std::find(j.calls.begin(), j.calls.end(), "GetDoubleArrayRegion") == j.calls.end();
        EXPECT_EQ(e.getId(), inJava ? "Error_in_callback" : internal) << "call " << n;
        EXPECT_EQ(e.getArgs(0)[0], (std::pair<std::string, std::string>("Function", "f")));
        EXPECT_THAT(out, ElementsAre(5, 6));
        EXPECT_EQ(j.liveRefs, 0);
        EXPECT_FALSE(j.pending);
        thrown += inJava;
    }
    EXPECT_EQ(thrown, 1);
}

TEST_F(CallbackTest, AFailureWhileTheStoryIsToldIsIgnored)
{
    std::vector<double> out(1);
    Callback::evalMat("f", {}, out, env());
    for (int later = 1; later < 12; ++later) {
        java().failCall(0);
        int calls = 0;
        // The call fails, and the later-th call that the story makes fails too.
        java().evalMat = [&](const auto&, auto&) {
            java().pending = true;
            java().failCall(later);
            ++calls;
        };

        const qxbase::Exception e = failureOf([&] { Callback::evalMat("f", {}, out, env()); });

        EXPECT_EQ(calls, 1);
        EXPECT_EQ(e.getId(), "Error_in_callback");
        EXPECT_EQ(java().liveRefs, 0) << later;
        EXPECT_FALSE(java().pending);
        java().failCall(0);
    }
}

TEST_F(CallbackTest, FailingAllocationsGiveEverythingBack)
{
    const std::vector<double> in = {1, 2};
    std::vector<double> out = {5, 6};
    const std::string name = "a function with a name that is no short string";
    vm.attached = true;
    qxtest::failEveryAllocation(
        [&] {
            try {
                Callback::evalMat(name, in, out, env());
            } catch (const std::bad_alloc&) {
                ADD_FAILURE() << "is this module's failure";
            }
        },
        [&](const qxtest::FaultRun& run) {
            EXPECT_THAT(run.id, testing::AnyOf(internal, ""));
            EXPECT_EQ(java().liveRefs, 0);
            java().pending = false;
        });
    vm.attached = false;
}

// ---- matrices, complex numbers, typed arguments

TEST_F(CallbackTest, MatricesGoInOrderColumnByColumn)
{
    java().evalMat = [](const auto& x, auto& y) { std::copy_n(x.begin(), y.size(), y.begin()); };
    const auto a = matrix<double>(2, 2, {1, 2, 3, 4}), b = matrix<double>(1, 2, {5, 6}), out = matrix<double>(2, 1, {0, 0});

    EXPECT_EQ(Callback::evalDblMat("f", {a, b}, {out}), 0);

    EXPECT_THAT(java().sent, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ((*out)(1, 0), 2);
}

TEST_F(CallbackTest, ComplexMatricesGoAsRealPartsThenImaginaryPartsOfEachArgument)
{
    java().evalMat = [](const auto&, auto& y) { y = {10, 20, 30, 40}; };
    const auto a = matrix<cplx>(2, 1, {cplx(1, -1), cplx(2, -2)}), b = matrix<cplx>(1, 1, {cplx(3, -3)});
    const auto out = matrix<cplx>(1, 2, {0, 0});

    EXPECT_EQ(Callback::evalDCmplxMat("f", {a, b}, {out}), 0);

    EXPECT_THAT(java().sent, ElementsAre(1, 2, -1, -2, 3, -3));
    EXPECT_EQ((*out)[0], cplx(10, 30));
    EXPECT_EQ((*out)[1], cplx(20, 40));
}

TEST_F(CallbackTest, ResultsBecomeNewMatricesOfTheWantedExtents)
{
    java().evalMat = [](const auto&, auto& y) {
        for (std::size_t i = 0; i < y.size(); ++i)
            y[i] = double(i);
    };
    Callback::Matrices<double> results(1);
    Callback::Matrices<cplx> complexes;

    Callback::evalMat<double>("f", {matrix<double>(1, 1, {1})}, {{2, 3}, {1, 0}}, results);
    Callback::evalMat<cplx>("f", {}, {{1, 2}}, complexes);

    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ((*results[0])(1, 2), 5);
    EXPECT_EQ(results[1]->size(), 0u);
    EXPECT_EQ((*complexes[0])[1], cplx(1, 3));

    java().evalMat = [&](const auto&, auto&) { java().pending = true; };
    EXPECT_EQ(idOf([&] { Callback::evalMat<double>("f", {}, {{1, 1}}, results); }), "Error_in_callback");
    EXPECT_EQ(results.size(), 2u);
    for (const Callback::Dims& bad : {Callback::Dims{{1}}, Callback::Dims{{-1, 2}}})
        EXPECT_EQ(idOf([&] { Callback::evalMat<double>("f", {}, bad, results); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalMat<double>("f", {}, {{65536, 65536}}, results); }), "Matrix_too_large_for_callback");
}

TEST_F(CallbackTest, APointFunctionMayWriteOverAnInput)
{
    java().evalMat = [](const auto& x, auto& y) { y[0] = x[0] + x[2], y[1] = x[1] + x[3]; };
    double a[] = {1, 2}, b[] = {10, 20};

    Callback::evalDblMat("f", {a, b}, 2, a);

    EXPECT_THAT(a, ElementsAre(11, 22));

    java().evalMat = [](const auto& x, auto& y) { y[0] = x[1], y[1] = x[0]; };
    cplx z = {3, 4};
    Callback::evalDCmplxMat("f", {&z}, 1, &z);
    EXPECT_EQ(z, cplx(4, 3));
}

TEST_F(CallbackTest, TypedArgumentsGoInOrder)
{
    java().evalMat = [](const auto&, auto& y) { y = {-1, 7, 8, 65, 300}; };
    const auto real = array<double>({1, 2, 3}), realOut = array<double>({0});
    const auto complex = array<cplx>({cplx(4, 5)}), complexOut = array<cplx>({0});
    const auto text = array<char>({'T', char(0xc3), char(0xa9)}), textOut = array<char>({'x', 'x'});
    const auto shared = []<class A>(A arg) { return boost::shared_ptr<Callback::Arg>(new A(arg)); };

    Callback::evalMat("f",
                      {shared(Callback::Double(real)), shared(Callback::DCmplx(complex)),
                       shared(Callback::Char(text))},
                      {{2}, {1}, {3, 1}},
                      {shared(Callback::Double(realOut)), shared(Callback::DCmplx(complexOut)),
                       shared(Callback::Char(textOut))},
                      {{1}, {1}, {2}});

    EXPECT_THAT(java().sent, ElementsAre(1, 2, 4, 5, 0x54, 0xc3, 0xa9)) << "two of the three real ones: the product of the extents";
    EXPECT_EQ((*realOut)[0], -1);
    EXPECT_EQ((*complexOut)[0], cplx(7, 8));
    EXPECT_EQ((*textOut)[0], 'A');
    EXPECT_EQ((*textOut)[1], '?') << "no byte";
}

TEST_F(CallbackTest, ExtentsThatDoNotFitAreAnInternalError)
{
    const Callback::Args one = {boost::make_shared<Callback::Double>(array<double>({1, 2}))};

    EXPECT_EQ(idOf([&] { Callback::evalMat("f", one, {{3}}, {}, {}); }), internal) << "more than there are";
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", one, {{-1}}, {}, {}); }), internal);
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", one, {}, {}, {}); }), internal) << "no extents for it";
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", one, {{65536, 32768}}, {}, {}); }), "Matrix_too_large_for_callback");
    EXPECT_EQ(idOf([&] { Callback::evalMat("f", one, {{2147483647, 2147483647, 2147483647}}, {}, {}); }),
              "Matrix_too_large_for_callback");
    Callback::evalMat("f", one, {{2147483647, 0}}, {}, {});
    EXPECT_THAT(java().sent, IsEmpty());
}

TEST_F(CallbackTest, TotalsBeyondTheInterfaceRaise)
{
    const auto big = boost::make_shared<Array<double, 2>>(1000UL, 1000UL);
    const auto bigComplex = boost::make_shared<Array<cplx, 2>>(1000UL, 1000UL);
    const auto sizeOf = [](auto a, std::size_t times) { return Callback::getArraySize(std::vector<decltype(a)>(times, a)); };

    EXPECT_EQ(sizeOf(big, 2147), 2147000000);
    EXPECT_EQ(idOf([&] { sizeOf(big, 2148); }), "Matrix_too_large_for_callback");
    EXPECT_EQ(sizeOf(bigComplex, 1073), 1073000000);
    EXPECT_EQ(idOf([&] { sizeOf(bigComplex, 1074); }), "Matrix_too_large_for_callback") << "a complex number is two";
    EXPECT_EQ(idOf([&] { Callback::evalDblMat("f", Callback::Matrices<double>(2148, big), {}); }), "Matrix_too_large_for_callback");
    EXPECT_EQ(idOf([&] { Callback::evalDCmplxMat("f", Callback::Matrices<cplx>(1074, bigComplex), {}); }),
              "Matrix_too_large_for_callback");
}

TEST_F(CallbackTest, AStatusThatCountsRaisesWithItsNumber)
{
    Callback::requireSuccess("f", 0);

    const qxbase::Exception e = failureOf([] { Callback::requireSuccess("f", 7); });

    EXPECT_EQ(e.getId(), "Error_in_callback");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Function", "f"}, {"Status", "7"}}));
}

// ---- interface to other native libraries

TEST(CallbackArg, TheTableOfVirtualOperationsStartsWithToCArrayAndTheDestructors)
{
    struct Probe : Callback::Arg
    {
        Probe() : Arg({}) {}
        void toCArray(const std::vector<int>&) override { ++converted; }
        void fromCArray() override {}
        int converted = 0;
    };
    Probe probe;
    auto* object = static_cast<Callback::Arg*>(&probe);
    // Entry 0 of the table, called as the platform's ABI calls it.
    using ToCArray = void (*)(Callback::Arg*, const std::vector<int>&);
    const auto* table = *reinterpret_cast<void* const* const*>(object);

    reinterpret_cast<ToCArray>(table[0])(object, {});

    EXPECT_EQ(probe.converted, 1);
    EXPECT_NE(table[1], table[2]) << "complete and deleting destructor";
}
