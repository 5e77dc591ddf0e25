// SPDX-License-Identifier: LicenseRef-qxkernel
// Calls into Java with a real virtual machine that checks every call.
#include "callback.hpp"

#include "support/alloc_fault.hpp"
#include "support/failure.hpp"
#include "support/java_test.hpp"

#include <gmock/gmock.h>
#include <omp.h>

#include <functional>
#include <thread>

using qxtest::failureOf;
using qxtest::idOf;
using qxutil::VMData;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

constexpr const char* solver = "com/quorix/solver/SolverCallback";

class CallbackInAVM : public qxtest::JavaTest
{
protected:
    int events()
    {
        jclass type = qxbase::findClass(env, solver);
        const int count = env->CallStaticIntMethod(type, env->GetStaticMethodID(type, "getCalls", "()I"));
        EXPECT_FALSE(env->ExceptionCheck());
        return count;
    }
};

} // namespace

TEST_F(CallbackInAVM, EventsArriveFromEveryKindOfThread)
{
    const int before = events();

    Callback::solverCallback(11);
    EXPECT_EQ(staticInt(solver, "last"), 11);
    EXPECT_EQ(VMData::getJNIEnv(), env) << "the main thread stays attached";
    std::thread([] {
        Callback::solverCallback(12);
        EXPECT_EQ(VMData::getJNIEnv(), nullptr) << "attached for the call only";
        const qxutil::AttachThread outer;
        Callback::solverCallback(13);
        EXPECT_NE(VMData::getJNIEnv(), nullptr);
    }).join();
    EXPECT_EQ(staticInt(solver, "last"), 13);
#pragma omp parallel num_threads(3)
    {
#pragma omp master
        Callback::solverCallback(14);
    }
    EXPECT_EQ(staticInt(solver, "last"), 14);
    EXPECT_EQ(events() - before, 4);

    std::vector<std::string> failures(4);
#pragma omp parallel for num_threads(4)
    for (int i = 0; i < 200; ++i)
        if (const std::string id = idOf([] { Callback::solverCallback(15); }); !id.empty())
            failures[std::size_t(omp_get_thread_num())] = id;
    EXPECT_THAT(failures, testing::Each(""));
    EXPECT_EQ(events() - before, 204) << "workers of OpenMP too";
}

TEST_F(CallbackInAVM, ExceptionsOfEveryKindInAnEventAreInternalErrorsWithTheirStory)
{
    for (const auto& [code, text] : {std::pair(-1, "java.lang.IllegalStateException: event -1"),
                                     std::pair(-2, "java.lang.Exception: checked"),
                                     std::pair(-3, "java.lang.OutOfMemoryError: staged"),
                                     std::pair(-4, "java.lang.StackOverflowError")}) {
        const qxbase::Exception e = failureOf([c = code] { Callback::solverCallback(c); });

        EXPECT_EQ(e.getId(), "Internal_error_callback");
        ASSERT_GE(e.getArgs(0).size(), 2u);
        EXPECT_EQ(e.getArgs(0)[0].first, "Exception");
        EXPECT_EQ(e.getArgs(0)[0].second, text);
        EXPECT_EQ(e.getArgs(0)[1].first, "Stack");
        EXPECT_THAT(e.getArgs(0)[1].second, StartsWith("com.quorix.solver.SolverCallback.eval(SolverCallback.java:"));
        EXPECT_LE(e.getArgs(0).size(), 21u);
        EXPECT_FALSE(env->ExceptionCheck());
    }
}

TEST_F(CallbackInAVM, NumbersGoThereAndBack)
{
    for (std::size_t n : {1u, 1000u}) {
        std::vector<double> in(2 * n), out(n);
        for (std::size_t i = 0; i < in.size(); ++i)
            in[i] = double(i);

        EXPECT_EQ(Callback::evalMat("sum", in, out, env), 0);

        for (std::size_t i = 0; i < n; ++i)
            EXPECT_EQ(out[i], double(2 * i + n));
    }
    std::vector<double> none, five(5);
    EXPECT_EQ(Callback::evalMat("lengths", none, none, env), 0);
    EXPECT_EQ(Callback::evalMat("lengths", {1, 2}, five, env), 2005);
    EXPECT_EQ(Callback::evalMat("status", none, none, env), 7) << "passed through";
    EXPECT_EQ(Callback::evalMat("T\xc3\xa9\xf0\x9f\x98\x80", none, none, env), 42) << "names of any characters";
}

TEST_F(CallbackInAVM, ExceptionsLeaveTheResultAsItWasAndNothingPending)
{
    std::vector<double> out = {5, 6};
    const auto storyOf = [&](const char* name) {
        const qxbase::Exception e = failureOf([&] { Callback::evalMat(name, {1.0}, out, env); });
        EXPECT_EQ(e.getId(), "Error_in_callback");
        EXPECT_FALSE(env->ExceptionCheck());
        EXPECT_EQ(e.getArgs(0)[0], (std::pair<std::string, std::string>("Function", name)));
        return e.getArgs(0).size() > 1 ? e.getArgs(0)[1].second : std::string();
    };

    EXPECT_EQ(storyOf("throws"), "java.lang.IllegalStateException: na\xc3\xafve \xf0\x9f\x98\x80 message");
    EXPECT_EQ(storyOf("memory"), "java.lang.OutOfMemoryError: Java heap space");
    EXPECT_EQ(storyOf("overflow"), "java.lang.StackOverflowError");
    EXPECT_EQ(storyOf("quiet"), "") << "a failure while the story is told is ignored";

    EXPECT_THAT(out, ElementsAre(5, 6));
}

TEST_F(CallbackInAVM, AJavaHeapThatIsFullIsAnInternalError)
{
    std::vector<double> big(12000000), small(1); // 96 MB for a heap of 64

    EXPECT_EQ(idOf([&] { Callback::evalMat("sum", big, small, env); }), "Internal_error_callback");
    EXPECT_EQ(idOf([&] { Callback::evalMat("sum", small, big, env); }), "Internal_error_callback");

    EXPECT_FALSE(env->ExceptionCheck());
    EXPECT_EQ(Callback::evalMat("sum", small, small, env), 0);
}

TEST_F(CallbackInAVM, AHundredThousandCallsLeaveNothingBehind)
{
    std::vector<double> in(2), out(1);
    Callback::solverCallback(1);
    Callback::evalMat("sum", in, out, env);
    const long before = qxtest::liveAllocations();

    for (int i = 0; i < 100000; ++i) {
        Callback::solverCallback(i);
        Callback::evalMat("sum", in, out, env);
    }

    EXPECT_EQ(qxtest::liveAllocations(), before);
    EXPECT_EQ(qxtest::jniWarnings(), 0);
    for (int i = 0; i < 1000; ++i)
        EXPECT_NE(idOf([&] { Callback::evalMat("throws", in, out, env); }), "");
    EXPECT_EQ(qxtest::liveAllocations(), before);
}
