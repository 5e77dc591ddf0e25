// SPDX-License-Identifier: LicenseRef-qxkernel
#include "valrepcache.hpp"

#include "host.hpp"
#include "support/alloc_fault.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

TEST(ValRepCache, MakesAnUnevaluatedValueAtTheFirstRequest)
{
    ValRepCache cache;
    const auto [found, rep] = cache.getVar("x", 0);
    EXPECT_FALSE(found);
    EXPECT_FALSE(rep->isEvaluated());
    const auto [again, same] = cache.getVar("x", 0);
    EXPECT_TRUE(again);
    EXPECT_EQ(rep, same);
}

TEST(ValRepCache, RequiredQuirkKeepsFourVariantsApartAndNoOtherFlags)
{
    ValRepCache cache;
    const ValRepPtr plain = cache.getVar("x", EvalValues).second;
    const ValRepPtr a = cache.getVar("x", EvalValues | 0x200).second;
    const ValRepPtr b = cache.getVar("x", EvalValues | 0x400).second;
    const ValRepPtr c = cache.getVar("x", EvalValues | 0x600).second;
    EXPECT_NE(plain, a);
    EXPECT_NE(a, b);
    EXPECT_NE(b, c);
    EXPECT_NE(plain, c);
    for (const unsigned flag : {8u, 0x10u, 0x100u, 1u})
        EXPECT_EQ(cache.getVar("x", EvalValues | flag).second, plain) << flag;
}

TEST(ValRepCache, GivesEmptyValuesThatItDoesNotKeep)
{
    const auto allocator = boost::make_shared<SerialArrayAllocator>(10, 0);
    ValRepCache cache(allocator);
    EXPECT_NE(cache.getEmpty(), cache.getEmpty());
    EXPECT_EQ(cache.getEmpty()->getAllocator(), allocator);
    EXPECT_FALSE(ValRepCache().getEmpty()->getAllocator());
    std::ostringstream report;
    cache.report(report);
    EXPECT_EQ(report.str().find("scalar"), std::string::npos);
}

TEST(ValRepCache, ForgetsValuesAndNamesAtAReset)
{
    ValRepCache cache;
    const ValRepPtr before = cache.getVar("x", 0).second;
    cache.setBVar("x");
    cache.reset();
    EXPECT_TRUE(cache.bVarBegin() == cache.bVarEnd());
    const auto [found, rep] = cache.getVar("x", 0);
    EXPECT_FALSE(found);
    EXPECT_NE(rep, before);
}

TEST(ValRepCache, KeepsDerivativesBesideTheVariables)
{
    const std::string mark(1, ValRepCache::derivativeMark);
    ValRepCache cache;
    const ValRepPtr variable = cache.getVar("d(u,x)", 0).second;
    const ValRepPtr derivative = cache.getVar(mark + "d(u,x)", 0).second;
    EXPECT_NE(variable, derivative);
    EXPECT_EQ(cache.getVar(mark + "d(u,x)", 0).second, derivative);

    std::ostringstream listing;
    cache.report(listing);
    EXPECT_EQ(listing.str().find(mark), std::string::npos);
    cache.reset();
    EXPECT_FALSE(cache.getVar(mark + "d(u,x)", 0).first);
}

TEST(ValRepCache, CountsNoDerivativesTowardsTheNamesAtWhichValuesAreDropped)
{
    ValRepCache cache;
    const ValRep* const kept = cache.getVar("x", 0).second.get();
    for (int i = 0; i < 1100; ++i)
        cache.getVar(std::string(1, ValRepCache::derivativeMark) + std::to_string(i), 0);

    cache.reset();

    EXPECT_EQ(cache.getVar("x", 0).second.get(), kept) << "its object serves the next pass";
}

TEST(ValRepCache, DropsItsReferencesAtAReset)
{
    ValRepCache cache;
    const ValRepPtr rep = cache.getVar("x", 0).second;
    EXPECT_EQ(rep.use_count(), 2);
    cache.reset();
    EXPECT_EQ(rep.use_count(), 1);
}

TEST(ValRepCache, ReportsWhatItHolds)
{
    ValRepCache cache;
    cache.getVar("a", 0).second->reset(boost::make_shared<ValRep>(2.0), false);
    cache.getVar("b", 0).second->reset(boost::make_shared<ValRep>(cplx(1, 2)), false);
    cache.getVar("c", 0).second->reset(false, false, 3);
    std::ostringstream out;
    cache.report(out);
    const std::string text = out.str();
    EXPECT_EQ(text.find("The following variable names are stored in cache:\n"
                        "=================================================\n"),
              0u);
    EXPECT_NE(text.find("a            : scalar    real    (evaluated)  \n"), std::string::npos) << text;
    EXPECT_NE(text.find("b            : scalar    complex (evaluated)  \n"), std::string::npos) << text;
    EXPECT_NE(text.find("c            : nonscalar real    \n"), std::string::npos) << text;
}

TEST(ValRepCache, AllocatesNothingInALaterPassOverTheSameNames)
{
    const std::string longName = "component1.material2.youngs_modulus_in_the_rolling_direction";
    ValRepCache cache(boost::make_shared<SerialArrayAllocator>(100, 0));
    const auto pass = [&] {
        cache.reset();
        for (const unsigned variant : {0u, 0x200u}) {
            const ValRepPtr rep = cache.getVar(longName, variant).second;
            DArrayPtr array;
            rep->reset(false, false, 100);
            rep->addDArray(array);
        }
    };
    pass();
    pass();
    const long before = allocationCount();
    pass();
    EXPECT_EQ(allocationCount() - before, 0);
}

TEST(ValRepCache, DoesNotKeepNamesWithoutEnd)
{
    ValRepCache cache;
    for (int pass = 0; pass < 3; ++pass) {
        cache.reset();
        for (int i = 0; i < 5000; ++i)
            cache.getVar("n" + std::to_string(pass) + "_" + std::to_string(i), 0);
    }
    const long before = liveAllocations();
    cache.reset(); // all 5000 names of the pass that ends
    for (int i = 0; i < 5000; ++i)
        cache.getVar("m" + std::to_string(i), 0);
    EXPECT_LT(liveAllocations() - before, 5000);
}
