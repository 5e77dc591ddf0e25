// SPDX-License-Identifier: LicenseRef-qxkernel
#include "prop.hpp"

#include "qxnumber.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace qxbase;

namespace {

/// The identifier that work raises, or "".
template <class Work>
std::string raised(Work&& work)
{
    try {
        work();
        return "";
    } catch (const Exception& e) {
        return e.getId();
    }
}

template <class Work>
ExceptionArgs arguments(Work&& work)
{
    try {
        work();
        return {};
    } catch (const Exception& e) {
        return e.getArgs(0);
    }
}

/// A list with one value under "key" and a check for it.
template <class Value>
Prop listWith(const Value& value, const boost::shared_ptr<const Check>& check)
{
    Prop prop;
    prop.setany("key", value);
    prop.setCheck("key", check);
    return prop;
}

} // namespace

TEST(Prop, HoldsTypedValues)
{
    Prop prop;
    prop.setInt("itlim", 7);
    prop.setany("feastol", 1e-6);
    prop.setany("print", std::string("out.txt"));

    EXPECT_TRUE(prop.got("itlim"));
    EXPECT_FALSE(prop.got("other"));
    EXPECT_EQ(prop.getInt("itlim"), 7);
    EXPECT_EQ(prop.getDouble("feastol"), 1e-6);
    EXPECT_EQ(prop.getDouble("itlim"), 7.0);
    EXPECT_EQ(prop.getString("print"), "out.txt");
    EXPECT_EQ(boost::any_cast<int>(prop.getAny("itlim")), 7);
    EXPECT_EQ(prop.getKeys(), mkVecStr(3, "feastol", "itlim", "print"));
}

TEST(Prop, AnotherTypeThanStoredRaisesWithTheNameOfTheType)
{
    Prop prop;
    prop.setany("feastol", 1e-6);

    EXPECT_EQ(raised([&] { prop.getInt("feastol"); }), "Internal_error_property_processing");
    EXPECT_EQ(arguments([&] { prop.get<int>("feastol"); }),
              (ExceptionArgs{{"get<>: Property \"feastol\" does not have type int", ""}}));
}

TEST(Prop, AMissingPropertyRaisesOnReading)
{
    const Prop prop;

    EXPECT_EQ(raised([&] { prop.getString("none"); }), "Internal_error_property_processing");
    EXPECT_EQ(raised([&] { prop.getAny("none"); }), "Internal_error_property_processing");
}

TEST(Prop, CopiesAreIndependent)
{
    Prop a;
    a.setInt("n", 1);
    Prop b = a;

    b.setInt("n", 2);

    EXPECT_EQ(a.getInt("n"), 1);
    EXPECT_EQ(b.getInt("n"), 2);
}

TEST(Prop, ADefaultStandsInForAnAbsentProperty)
{
    Prop prop;
    prop.setCheck("checkfreq", boost::make_shared<ChkIntInterval>(60, 1, 2147483647));

    prop.check("checkfreq");

    EXPECT_TRUE(prop.got("checkfreq"));
    EXPECT_EQ(prop.getInt("checkfreq"), 60);
    EXPECT_NO_THROW(prop.assertChecked());
}

TEST(Prop, WithoutADefaultAnAbsentPropertyStaysAbsentOrIsMissed)
{
    Prop prop;
    prop.setCheck("itlim", boost::make_shared<ChkIntInterval>(0, 2147483647));

    prop.check("itlim");
    EXPECT_FALSE(prop.got("itlim"));

    EXPECT_EQ(raised([&] { prop.check("itlim", true); }), "Property_is_missing");
    EXPECT_EQ(raised([&] { prop.check("without a rule", true); }), "Property_is_missing");
}

TEST(Prop, AssertCheckedNamesAPropertyThatNobodyKnows)
{
    Prop prop;
    prop.setInt("known", 1);
    prop.setInt("typo", 1);
    prop.check("known");

    EXPECT_EQ(arguments([&] { prop.assertChecked(); }), (ExceptionArgs{{"Property", "typo"}}));
    EXPECT_EQ(raised([&] { prop.assertChecked(); }), "Unknown_property");

    prop.check("typo"); // a key without a rule takes any value
    EXPECT_NO_THROW(prop.assertChecked());
}

TEST(Prop, ANewValueHasToBeCheckedAgain)
{
    Prop prop;
    prop.setInt("n", 1);
    prop.check("n");

    prop.setInt("n", 2);

    EXPECT_EQ(raised([&] { prop.assertChecked(); }), "Unknown_property");
}

TEST(Prop, AGlobalCheckServesAllListsAndAnOwnOneGoesBefore)
{
    Prop::setCheckGlobal("prop_test.global", boost::make_shared<ChkIntInterval>(5, 0, 10));
    Prop plain, own;
    own.setCheck("prop_test.global", boost::make_shared<ChkIntInterval>(50, 0, 100));

    plain.check("prop_test.global");
    own.check("prop_test.global");

    EXPECT_EQ(plain.getInt("prop_test.global"), 5);
    EXPECT_EQ(own.getInt("prop_test.global"), 50);
}

TEST(Prop, AFailedCheckLeavesTheValue)
{
    Prop prop = listWith(99, boost::make_shared<ChkIntInterval>(0, 10));

    EXPECT_EQ(raised([&] { prop.check("key"); }), "Invalid_property_value");

    EXPECT_EQ(prop.getInt("key"), 99);
    EXPECT_EQ(raised([&] { prop.assertChecked(); }), "Unknown_property");
}

TEST(ChkIntInterval, TakesItsEndsAndWholeNumbersOfOtherTypes)
{
    const auto check = boost::make_shared<ChkIntInterval>(-1, 3);

    for (const boost::any& good : {boost::any(-1), boost::any(3), boost::any(2L), boost::any(2.0)}) {
        Prop prop = listWith(good, check);
        prop.check("key");
        EXPECT_NO_THROW(prop.getInt("key"));
    }
    for (const boost::any& bad : {boost::any(-2), boost::any(4), boost::any(2.5), boost::any(qxGetNaN()),
                                  boost::any(1L << 40)}) {
        Prop prop = listWith(bad, check);
        EXPECT_EQ(raised([&] { prop.check("key"); }), "Invalid_property_value");
    }
}

TEST(ChkIntInterval, SaysWhatIsAllowed)
{
    Prop prop = listWith(4, boost::make_shared<ChkIntInterval>(0, 3));

    EXPECT_EQ(arguments([&] { prop.check("key"); }),
              (ExceptionArgs{{"Property", "key"}, {"Value", "4"}, {"Allowed", "[0, 3]"}}));
}

TEST(ChkIntInterval, TextIsAnotherType)
{
    Prop prop = listWith(std::string("3"), boost::make_shared<ChkIntInterval>(0, 3));

    EXPECT_EQ(raised([&] { prop.check("key"); }), "Invalid_property_type");
}

TEST(ChkDoubleInterval, TakesItsEndsAndInfinityButNoNaN)
{
    const auto check = boost::make_shared<ChkDoubleInterval>(1e-6, 0.0, qxGetInf());

    for (const double good : {0.0, 1.0, qxGetInf()}) {
        Prop prop = listWith(good, check);
        prop.check("key");
        EXPECT_EQ(prop.getDouble("key"), good);
    }
    for (const double bad : {-1e-300, qxGetNaN()}) {
        Prop prop = listWith(bad, check);
        EXPECT_EQ(raised([&] { prop.check("key"); }), "Invalid_property_value");
    }
}

TEST(ChkDoubleInterval, StoresWholeNumbersAsDoubles)
{
    Prop prop = listWith(3, boost::make_shared<ChkDoubleInterval>(0.0, 10.0));

    prop.check("key");

    EXPECT_EQ(prop.get<double>("key"), 3.0);
}

TEST(ChkDoubleOpenInterval, RefusesItsEnds)
{
    const auto check = boost::make_shared<ChkDoubleOpenInterval>(1e20, 0.0, qxGetInf());
    Prop zero = listWith(0.0, check), infinite = listWith(qxGetInf(), check), inside = listWith(5e-324, check), none;
    none.setCheck("key", check);

    EXPECT_EQ(arguments([&] { zero.check("key"); }),
              (ExceptionArgs{{"Property", "key"}, {"Value", "0"}, {"Allowed", "(0, Inf)"}}));
    EXPECT_EQ(raised([&] { infinite.check("key"); }), "Invalid_property_value");
    EXPECT_NO_THROW(inside.check("key"));
    none.check("key");
    EXPECT_EQ(none.getDouble("key"), 1e20);
}

TEST(ChkString, WithoutAListTakesAnyText)
{
    const auto check = boost::make_shared<ChkString>();
    Prop text = listWith(std::string("anything"), check), literal = listWith<const char*>("literal", check),
         number = listWith(1, check);

    text.check("key");
    literal.check("key");

    EXPECT_EQ(text.getString("key"), "anything");
    EXPECT_EQ(literal.getString("key"), "literal");
    EXPECT_EQ(raised([&] { number.check("key"); }), "Invalid_property_type");
}

TEST(ChkString, WithAListTakesItsValuesOnly)
{
    const auto check = boost::make_shared<ChkString>("cholesky", 3, "cholesky", "Cholesky", "cg", "Conjugate-gradient",
                                                     "qn", "Quasi-Newton");
    Prop none, good = listWith(std::string("qn"), check), bad = listWith(std::string("QN"), check);
    none.setCheck("key", check);

    none.check("key");
    good.check("key");

    EXPECT_EQ(none.getString("key"), "cholesky");
    EXPECT_EQ(good.getString("key"), "qn");
    EXPECT_EQ(arguments([&] { bad.check("key"); }),
              (ExceptionArgs{{"Property", "key"}, {"Value", "QN"}, {"Allowed", "cholesky, cg, qn"}}));
    EXPECT_EQ(check->getChoices()[1].second, "Conjugate-gradient");
}

TEST(ChkString, AListOfValuesHasNoDefault)
{
    Prop prop;
    prop.setCheck("key", boost::make_shared<ChkString>(mkVecStr(2, "full", "limited")));

    prop.check("key");
    EXPECT_FALSE(prop.got("key"));

    prop.setString("key", "full");
    EXPECT_NO_THROW(prop.check("key"));
}

TEST(ChkString, ACountThatDoesNotFitItsPairsRaises)
{
    EXPECT_EQ(raised([] { ChkString check("a", 2, "a", "A"); }), "Internal_error_property_processing");
}

TEST(ChkStringToIndex, TurnsATextIntoItsIndex)
{
    const auto check = boost::make_shared<ChkStringToIndex>("off", 2, "off", "Minimize goal function", "on",
                                                            "Maximize goal function");
    Prop none, on = listWith(std::string("on"), check), bad = listWith(std::string("maybe"), check);
    none.setCheck("key", check);

    none.check("key");
    on.check("key");
    on.check("key"); // a second time: the index stays

    EXPECT_EQ(none.getInt("key"), 0);
    EXPECT_EQ(on.getInt("key"), 1);
    EXPECT_EQ(raised([&] { bad.check("key"); }), "Invalid_property_value");
    Prop beyond = listWith(2, check);
    EXPECT_EQ(raised([&] { beyond.check("key"); }), "Invalid_property_value");
}

TEST(ChkVectorString, TakesAListOrOneText)
{
    const auto check = boost::make_shared<ChkVectorString>();
    Prop many = listWith(mkVecStr(2, "null", "compl"), check), one = listWith(std::string("null"), check),
         bad = listWith(1.0, check);

    many.check("key");
    one.check("key");

    EXPECT_EQ(many.get<std::vector<std::string>>("key"), mkVecStr(2, "null", "compl"));
    EXPECT_EQ(one.get<std::vector<std::string>>("key"), mkVecStr(1, "null"));
    EXPECT_EQ(raised([&] { bad.check("key"); }), "Invalid_property_type");
}

TEST(MkVecStr, ACountThatDoesNotFitRaises)
{
    EXPECT_EQ(mkVecStr(0), std::vector<std::string>());
    EXPECT_EQ(raised([] { mkVecStr(2, "a"); }), "Internal_error_property_processing");
}
