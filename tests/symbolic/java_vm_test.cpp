// SPDX-License-Identifier: LicenseRef-qxkernel
// Reading through the Java parser class in a real virtual machine. A program of its own: the machine stays to its end.
#include "symbolic_support.hpp"

#include "qxjni.hpp"
#include "support/java_vm.hpp"

#include <thread>

using namespace qxtest;

namespace {

class RealJavaParser : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!*QX_TEST_CLASSES || !startVM(QX_TEST_CLASSES))
            GTEST_SKIP() << "no Java on this machine";
    }
    void TearDown() override { EXPECT_EQ(jniWarnings(), 0); }
};

} // namespace

TEST_F(RealJavaParser, ReadsWhatTheClassReturns)
{
    EXPECT_EQ(printedInfix("a+b*c"), "a+b*c");
    EXPECT_EQ(printedInfix("(a+b)*c"), "(a+b)*c");
    EXPECT_EQ(printedInfix("java"), "java");                 // a plain name does not get there
    EXPECT_EQ(printedInfix("flags()"), "flagsTrueTrue");     // nor is this a call: the class answers with its flags
}

TEST_F(RealJavaParser, EmptyResultIsASyntaxErrorThatNamesTheText)
{
    EXPECT_EQ(argsOf([] { printedInfix("a+"); }), (qxbase::ExceptionArgs{{"Expression", "a+"}}));
    EXPECT_EQ(idOf([] { printedInfix(""); }), syntaxError);
}

TEST_F(RealJavaParser, NullAndThrownExceptionsAreCallbackErrorsAndLeaveNothingPending)
{
    ExprImpl e;
    e.scan("a+b");
    EXPECT_EQ(idOf([&] { e.scan("null()"); }), "Internal_error_callback");
    EXPECT_EQ(idOf([&] { e.scan("throw()"); }), "Internal_error_callback");
    EXPECT_EQ(e.toString(), "a+b");
    e.scan("a*b"); // the machine still serves
    EXPECT_EQ(e.toString(), "a*b");
}

TEST_F(RealJavaParser, ServesAThreadThatIsAttachedForTheCallOnly)
{
    std::thread([] {
        EXPECT_EQ(qxutil::VMData::getJNIEnv(), nullptr);
        EXPECT_EQ(printedInfix("a+b"), "a+b");
        EXPECT_EQ(qxutil::VMData::getJNIEnv(), nullptr);
    }).join();
}

TEST_F(RealJavaParser, NativeConverterCanBeForced)
{
    setInfixConverter(qxInfixToPrefix);
    EXPECT_EQ(printedInfix("flags()"), "flags()");
    setInfixConverter(nullptr);
    EXPECT_EQ(printedInfix("flags()"), "flagsTrueTrue");
}
