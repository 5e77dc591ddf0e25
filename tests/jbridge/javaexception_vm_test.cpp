// SPDX-License-Identifier: LicenseRef-qxkernel
// Failures of the library as Java exceptions, in a real virtual machine.
#include "javaexception.hpp"

#include "qxjarray.hpp"
#include "support/alloc_fault.hpp"
#include "support/java_test.hpp"

#include <stdexcept>

using qxbase::Exception;
using qxbase::JavaFailureClasses;
using qxbase::throwToJava;

namespace {

const JavaFailureClasses hostClasses{"bridge/Failure", "bridge/Failure"};

class JavaException : public qxtest::JavaTest
{
protected:
    jthrowable taken()
    {
        jthrowable pending = env->ExceptionOccurred();
        env->ExceptionClear();
        EXPECT_NE(pending, nullptr);
        return pending;
    }
    std::string field(jobject object, const char* name)
    {
        jclass type = env->GetObjectClass(object);
        auto text = static_cast<jstring>(env->GetObjectField(object, env->GetFieldID(type, name, "Ljava/lang/String;")));
        return qxbase::jStr2CppStr(env, text);
    }
    std::vector<std::string> arguments(jobject object)
    {
        jclass type = env->GetObjectClass(object);
        jobject array = env->GetObjectField(object, env->GetFieldID(type, "arguments", "[Ljava/lang/String;"));
        std::vector<std::string> texts;
        qxarray::toCpp(env, static_cast<jobjectArray>(array), texts);
        return texts;
    }
    jobject causeOf(jobject object)
    {
        jclass type = env->GetObjectClass(object);
        jobject cause = env->CallObjectMethod(object, env->GetMethodID(type, "getCause", "()Ljava/lang/Throwable;"));
        EXPECT_FALSE(env->ExceptionCheck());
        return cause;
    }
    Exception sample()
    {
        Exception e("umfpack", 7, "Singular_matrix", "Step", 2);
        e.add("heat", 8, "In_solution", {{"Name", "T\xc3\xa9"}});
        return e;
    }
};

} // namespace

TEST_F(JavaException, CarriesIdentifierArgumentsAndStoryInTheHostsClass)
{
    throwToJava(env, sample(), hostClasses);

    jthrowable thrown = taken();
    EXPECT_EQ(classOf(thrown), "bridge.Failure");
    EXPECT_EQ(field(thrown, "identifier"), "Singular_matrix");
    EXPECT_EQ(arguments(thrown), (std::vector<std::string>{"Step", "2", "Name", "T\xc3\xa9"}));
    EXPECT_EQ(field(thrown, "story"), sample().toString());
    EXPECT_EQ(causeOf(thrown), nullptr);
}

TEST_F(JavaException, ThePendingExceptionBecomesTheCause)
{
    for (const JavaFailureClasses& classes : {hostClasses, JavaFailureClasses()}) {
        ASSERT_EQ(env->FindClass("no/such/Class"), nullptr);

        throwToJava(env, sample(), classes);

        EXPECT_EQ(classOf(causeOf(taken())), "java.lang.NoClassDefFoundError");
    }
}

TEST_F(JavaException, WithoutAHostsClassJavasOwnAreTaken)
{
    throwToJava(env, sample());
    jthrowable thrown = taken();
    EXPECT_EQ(classOf(thrown), "java.lang.RuntimeException");
    EXPECT_EQ(ask(thrown, "getMessage"), sample().toString());

    throwToJava(env, sample(), {"no/such/Class", nullptr});
    EXPECT_EQ(takePending(), "java.lang.RuntimeException");

    throwToJava(env, sample(), {"java/lang/String", nullptr}); // not the constructor
    EXPECT_EQ(takePending(), "java.lang.RuntimeException");

    throwToJava(env, qxbase::CancelException("umfpack", 3));
    thrown = taken();
    EXPECT_EQ(classOf(thrown), "java.util.concurrent.CancellationException");
    EXPECT_EQ(ask(thrown, "getMessage"), "umfpack:3 Cancelled\n");
}

TEST_F(JavaException, CancellingHasAClassOfItsOwn)
{
    throwToJava(env, qxbase::CancelException("umfpack", 3), {nullptr, "bridge/Failure"});

    jthrowable thrown = taken();
    EXPECT_EQ(classOf(thrown), "bridge.Failure");
    EXPECT_EQ(field(thrown, "identifier"), "Cancelled");
}

TEST_F(JavaException, GuardsTheBodyOfANativeMethod)
{
    const auto classThrownBy = [&](auto failure) {
        const int value = qxbase::guardJava(env, hostClasses, [&]() -> int { throw failure; });
        EXPECT_EQ(value, 0);
        return takePending();
    };

    EXPECT_EQ(qxbase::guardJava(env, hostClasses, [] { return 5; }), 5);
    EXPECT_EQ(classThrownBy(sample()), "bridge.Failure");
    EXPECT_EQ(classThrownBy(qxbase::CancelException("a", 1)), "bridge.Failure");
    EXPECT_EQ(classThrownBy(std::bad_alloc()), "java.lang.OutOfMemoryError");
    EXPECT_EQ(classThrownBy(3), "bridge.Failure");

    qxbase::guardJava(env, hostClasses, [] { throw std::runtime_error("plain"); });
    jthrowable thrown = taken();
    EXPECT_EQ(field(thrown, "identifier"), "Unexpected_exception");
    EXPECT_EQ(arguments(thrown), (std::vector<std::string>{"What", "plain"}));
}

TEST_F(JavaException, AConversionThatFailedKeepsItsOutOfMemoryErrorAsTheCause)
{
    qxbase::guardJava(env, hostClasses, [&] { qxarray::toJavaNew(env, Array<double, 1>(12000000)); });

    jthrowable thrown = taken();
    EXPECT_EQ(field(thrown, "identifier"), "JNI_exception");
    EXPECT_EQ(classOf(causeOf(thrown)), "java.lang.OutOfMemoryError");
}

TEST_F(JavaException, SomeExceptionIsPendingWhateverAllocationFails)
{
    const Exception failure = sample();
    const long allocations = qxtest::failEveryAllocation([&] { throwToJava(env, failure, hostClasses); },
                                                         [&](const qxtest::FaultRun& run) {
                                                             EXPECT_FALSE(run.badAlloc);
                                                             EXPECT_NE(takePending(), "") << run.n;
                                                             EXPECT_EQ(run.leaked, 0);
                                                         });
    EXPECT_GT(allocations, 3);
}
