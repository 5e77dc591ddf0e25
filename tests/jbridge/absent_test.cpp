// SPDX-License-Identifier: LicenseRef-qxkernel
// A library built without Java (QX_WITH_JAVA=OFF): what needs a virtual machine fails as without one, and says why.

#include "callback.hpp"
#include "exprimpl.hpp"
#include "externfun.hpp"
#include "formulas.hpp"
#include "qxjni.hpp"
#include "support/failure.hpp"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// Identifier and "Reason" of the failure.
template <class Work>
std::pair<std::string, std::string> storyOf(const Work& work)
{
    const qxbase::Exception e = qxtest::failureOf(work);
    if (e.size() != 0)
        for (const auto& [key, value] : e.getArgs(0))
            if (key == "Reason")
                return {e.getId(), value};
    return {e.getId(), ""};
}

const std::string kReason = "This library was built without Java (QX_WITH_JAVA=OFF)";
const std::pair kNoText(std::string("JNI_exception"), kReason);
const std::pair kNoCallback(std::string("Internal_error_callback"), kReason);

} // namespace

TEST(WithoutJava, ThereIsNoVirtualMachine)
{
    const qxutil::AttachThread attached;

    EXPECT_EQ(qxbase::QxJCall::getVM(), nullptr);
    EXPECT_EQ(qxutil::VMData::getJNIEnv(), nullptr);
    EXPECT_EQ(qxbase::findClass(nullptr, "java/lang/String"), nullptr);
}

TEST(WithoutJava, TextsOfJavaAreRefusedWithTheReason)
{
    EXPECT_EQ(storyOf([] { qxbase::jStr2CppStr(nullptr, nullptr); }), kNoText);
    EXPECT_EQ(storyOf([] { qxbase::jStr2CppWStr(nullptr, nullptr); }), kNoText);
    EXPECT_EQ(storyOf([] { qxbase::toJavaNew(nullptr, std::string("x")); }), kNoText);
    EXPECT_EQ(storyOf([] { qxbase::toJavaNew(nullptr, std::wstring(L"x")); }), kNoText);
    EXPECT_EQ(storyOf([] { qxbase::QxJCall::setClassLoader(nullptr, nullptr); }), kNoText);
}

TEST(WithoutJava, CallbacksFailAndLeaveTheirResults)
{
    const std::vector<double> in{1, 2};
    std::vector<double> out{3, 4};
    double point = 5;
    const std::complex<double> z{1, 2};
    std::complex<double> w{6, 7};

    EXPECT_EQ(storyOf([] { Callback::solverCallback(1); }), kNoCallback);
    EXPECT_EQ(storyOf([&] { Callback::evalMat("f", in, out, nullptr); }), kNoCallback);
    EXPECT_EQ(storyOf([&] { Callback::evalDblMat("f", {in.data()}, 1, &point); }), kNoCallback);
    EXPECT_EQ(storyOf([&] { Callback::evalDCmplxMat("f", {&z}, 1, &w); }), kNoCallback);

    EXPECT_EQ(out, (std::vector<double>{3, 4}));
    EXPECT_EQ(point, 5);
    EXPECT_EQ(w, std::complex<double>(6, 7));
}

TEST(WithoutJava, AFunctionOfJavaFailsWhenItIsEvaluated)
{
    const ExternFun f("f", 1);
    const auto x = boost::make_shared<double>(1.0);

    EXPECT_EQ(storyOf([&] { f(x); }), kNoCallback);
}

TEST(WithoutJava, TextIsReadByTheLibrarysOwnConverter)
{
    EXPECT_EQ(storyOf([] { qxInfixToPrefixByJava("x+1"); }), kNoCallback);

    qx::Formulas formulas({"x"});
    const auto id = formulas.add("x^2+1");
    const auto program = formulas.compile();
    qx::Points points(1);
    const std::vector<double> x{3};
    points.set("x", x);
    std::vector<double> value(1);
    program.evaluate(points, id, value);

    EXPECT_EQ(value[0], 10.0);
}
