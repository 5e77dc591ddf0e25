// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimstate.hpp"

#include "optim/optiontable_detail.hpp"
#include "qxnumber.hpp"
#include "recorder.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <climits>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

namespace {

using qxbase::Prop;
using qxtest::failureOf;
using qxtest::idOf;
using testing::ElementsAre;
using testing::HasSubstr;

class OptimStateCalls : public WithRecorder
{
protected:
    std::unique_ptr<OptimState> newState(bool np) { return std::make_unique<OptimState>(4000, 500, 500, np, 0, 0); }
};

// --- Loading -----------------------------------------------------------------------------------------------------------

class OptimLibrary : public testing::Test
{
protected:
    ~OptimLibrary() override { OptimState::setLibraryPath(""); }
};

TEST_F(OptimLibrary, FailedLoadSaysWhereItLookedAndALaterOneSucceeds)
{
    OptimState::setLibraryPath("/nowhere/at/all");

    const qxbase::Exception failure = failureOf([] { OptimState::loadLib(); });
    const bool loadedAfterFailure = OptimState::isLibLoaded();
    OptimState::setLibraryPath(QX_RECORDING_FOLDER);
    OptimState::loadLib();

    EXPECT_EQ(failure.getId(), "Cannot_open_library");
    EXPECT_THAT(failure.toString(), HasSubstr("/nowhere/at/all/libqxsnopt.dylib; "));
    EXPECT_FALSE(loadedAfterFailure);
    EXPECT_TRUE(OptimState::isLibLoaded());
}

TEST_F(OptimLibrary, SecondLoadDoesNothing)
{
    OptimState::setLibraryPath(QX_RECORDING_FOLDER);
    OptimState::loadLib();
    const auto first = OptimState::getOptlib();

    OptimState::loadLib();

    EXPECT_EQ(OptimState::getOptlib(), first);
}

TEST_F(OptimLibrary, WithoutOneEveryCallOfTheOptimizerRaises)
{
    OptimState state(4000, 500, 500, true, 0, 0);
    Prop prop;

    EXPECT_EQ(idOf([&] { state.init(); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.seti("Print level", 1); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.setr("Elastic weight", 1); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.set("Minimize"); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.setPrintFile("x"); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.setNPOptions(prop); }), "Internal_error_optim");
    EXPECT_EQ(OptimState::getOptlib(), nullptr);
}

TEST_F(OptimLibrary, NamesAMissingEntryPoint)
{
    OptimState::setLibraryPath(QX_PARTIAL_FOLDER);
    OptimState::loadLib();
    OptimState state(4000, 500, 500, true, 0, 0);
    state.init();

    const qxbase::Exception failure = failureOf([&] { state.set("Minimize"); });

    EXPECT_EQ(failure.getId(), "Symbol_not_found_in_library");
    EXPECT_THAT(failure.toString(), HasSubstr("Symbol = qxsnset"));
}

// --- Workspaces --------------------------------------------------------------------------------------------------------

TEST(OptimStateWorkspaces, CharactersAreCountedInWordsOfEight)
{
    EXPECT_EQ(OptimState(4007, 1, 1, true, 0, 0).getCwLength(), 500);
    EXPECT_EQ(OptimState(4008, 1, 1, true, 0, 0).getCwLength(), 501);
    EXPECT_EQ(OptimState(7, 1, 1, true, 0, 0).getCwLength(), 0);
}

TEST(OptimStateWorkspaces, AreTakenAsGivenAndMayBeEmpty)
{
    const OptimState state(0, 0, 0, false, 0, 0);

    EXPECT_EQ(state.getCwBytes(), 0);
    EXPECT_EQ(state.getIwLength(), 0);
    EXPECT_EQ(state.getRwLength(), 0);
}

TEST(OptimStateWorkspaces, KeepTheCommonPrefixWhateverTheNewLength)
{
    OptimState state(4, 4, 4, true, 0, 0);
    for (int i = 0; i < 4; ++i) {
        state.getCw()[i] = static_cast<char>('a' + i);
        state.getIw()[i] = 10 + i;
        state.getRw()[i] = 0.5 + i;
    }

    state.reallocate(6, 6, 6);

    EXPECT_EQ(std::string(state.getCw(), 6), "abcd  ");
    EXPECT_THAT(std::vector<int>(state.getIw(), state.getIw() + 6), ElementsAre(10, 11, 12, 13, 0, 0));
    EXPECT_THAT(std::vector<double>(state.getRw(), state.getRw() + 6), ElementsAre(0.5, 1.5, 2.5, 3.5, 0, 0));

    state.reallocateCw(3);
    state.reallocateIw(2);
    state.reallocateRw(1);

    EXPECT_EQ(std::string(state.getCw(), 3), "abc");
    EXPECT_THAT(std::vector<int>(state.getIw(), state.getIw() + 2), ElementsAre(10, 11));
    EXPECT_THAT(std::vector<double>(state.getRw(), state.getRw() + 1), ElementsAre(0.5));
}

TEST(OptimStateWorkspaces, NegativeLengthsRaiseAndChangeNothing)
{
    OptimState state(8, 2, 2, true, 0, 0);

    EXPECT_EQ(idOf([&] { state.reallocate(-1, 4, 4); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { state.reallocate(16, 4, -4); }), "Internal_error_optim");
    EXPECT_EQ(idOf([&] { OptimState(0, -1, 0, true, 0, 0); }), "Internal_error_optim");

    EXPECT_EQ(state.getCwBytes(), 8);
    EXPECT_EQ(state.getIwLength(), 2);
    EXPECT_EQ(state.getRwLength(), 2);
}

TEST(OptimStateWorkspaces, MoreThanThereIsMemoryForRaisesByClassOfProblem)
{
    EXPECT_EQ(idOf([] { OptimState(0, INT_MAX, 0, true, 0, 0); }), "Out of memory in optimization");
    EXPECT_EQ(idOf([] { OptimState(0, 0, INT_MAX, false, 0, 0); }), "Out_of_memory_in_optimization");
}

TEST(OptimStateWorkspaces, AreAsTheyWereWhenAnAllocationFails)
{
    OptimState state(8, 2, 2, false, 0, 0);

    const long allocations = qxtest::failEveryAllocation([&] { state.reallocate(80, 20, 20); },
                                                         [&](const qxtest::FaultRun& run) {
        EXPECT_EQ(run.leaked, run.faulted ? 0 : run.leaked);
        if (!run.faulted)
            return;
        EXPECT_EQ(run.id, "Out_of_memory_in_optimization");
        EXPECT_EQ(state.getCwBytes(), 8);
        EXPECT_EQ(state.getIwLength(), 2);
        EXPECT_EQ(state.getRwLength(), 2);
    });

    EXPECT_GE(allocations, 3);
    EXPECT_EQ(state.getRwLength(), 20);
}

// --- init and single options ---------------------------------------------------------------------------------------------

TEST_F(OptimStateCalls, InitGivesNoUnitsAndLengthensWorkspacesToTheMinimum)
{
    OptimState state(16, 600, 0, true, 0, 0);

    state.init();

    EXPECT_THAT(script->calls, ElementsAre("qxsninit 0 0 lengths 500 600 500"));
}

TEST_F(OptimStateCalls, UserWordsAreAnnouncedWithFiveHundredMore)
{
    OptimState(4000, 500, 500, false, 7, 11).init();

    EXPECT_THAT(script->calls, ElementsAre("qxsqinit 0 0 lengths 500 500 500",
                                           "qxsqseti 'User real workspace' = 511 print 0",
                                           "qxsqseti 'User integer workspace' = 507 print 0"));
}

TEST_F(OptimStateCalls, UserWordsAreAnnouncedOnlyWhenPositive)
{
    OptimState(4000, 500, 500, true, 0, 3).init();
    OptimState(4000, 500, 500, true, 4, 0).init();
    OptimState(4000, 500, 500, true, -4, -1).init();

    EXPECT_THAT(callsOf("qxsnseti"), ElementsAre("qxsnseti 'User real workspace' = 503 print 0",
                                                 "qxsnseti 'User integer workspace' = 504 print 0"));
}

TEST_F(OptimStateCalls, OptionsGoToTheEntryPointsOfTheClass)
{
    const auto np = newState(true), qp = newState(false);

    np->seti("Check frequency", 3);
    np->setr("Elastic weight", 0.5);
    np->set("Minimize ");
    qp->seti("Check frequency", 3);
    qp->setr("Elastic weight", 0.5);
    qp->set("Minimize ");

    EXPECT_THAT(script->calls,
                ElementsAre("qxsnseti 'Check frequency' = 3 print 0", "qxsnsetr 'Elastic weight' = 0.5 print 0",
                            "qxsnset 'Minimize ' print 0", "qxsqseti 'Check frequency' = 3 print 0",
                            "qxsqsetr 'Elastic weight' = 0.5 print 0", "qxsqset 'Minimize ' print 0"));
}

TEST_F(OptimStateCalls, PrintFileIsOpenedUnderUnitFifteenAndClosedByTheDestructor)
{
    {
        const auto state = newState(true);
        state->init();
        state->setPrintFile("run.out");
        state->seti("Check frequency", 3);
    }

    EXPECT_THAT(script->calls,
                ElementsAre("qxsninit 0 0 lengths 500 500 500", "qxsnopenappend 15 'run.out'",
                            "qxsnseti 'Print file' = 15 print 15", "qxsnseti 'Check frequency' = 3 print 15",
                            "qxsnclose 15"));
}

TEST_F(OptimStateCalls, ClosingThePrintFileSendsZeroAndClosesOnce)
{
    const auto state = newState(false);
    state->init();
    state->setPrintFile("a");
    script->calls.clear();

    state->closePrintFile();
    state->closePrintFile();

    EXPECT_THAT(script->calls, ElementsAre("qxsqseti 'Print file' = 0 print 0", "qxsnclose 15"));
}

TEST_F(OptimStateCalls, ASecondPrintFileClosesTheFirst)
{
    const auto state = newState(true);
    state->setPrintFile("a");

    state->setPrintFile("b");

    EXPECT_THAT(callsOf("qxsnclose"), ElementsAre("qxsnclose 15"));
    EXPECT_THAT(callsOf("qxsnopenappend"), ElementsAre("qxsnopenappend 15 'a'", "qxsnopenappend 15 'b'"));
}

TEST_F(OptimStateCalls, PrintFileThatCannotBeOpenedRaisesWithItsName)
{
    const auto state = newState(true);
    script->openInform = 1;

    const qxbase::Exception failure = failureOf([&] { state->setPrintFile("no/such/folder"); });

    EXPECT_EQ(failure.getId(), "Internal_error_optim");
    EXPECT_THAT(failure.toString(), HasSubstr("File = no/such/folder"));
    EXPECT_TRUE(callsOf("qxsnseti").empty());
}

TEST_F(OptimStateCalls, AnotherLibraryNeedsInitAgain)
{
    const auto state = newState(true);
    state->init();
    EXPECT_TRUE(state->isInitialised());

    OptimState::setLibraryPath(QX_PARTIAL_FOLDER);
    OptimState::loadLib();

    EXPECT_FALSE(state->isInitialised());
}

// --- Properties ----------------------------------------------------------------------------------------------------------

struct Row
{
    const char* property;
    const char* fallback; ///< "none", or the value that the check supplies
    double low, high;     ///< range of a number, both ends allowed unless the interval is open
    bool open;
    const char* quadraticWord;
    const char* nonlinearWord;
};

constexpr double kInf = std::numeric_limits<double>::infinity();

// Keys, defaults, ranges and wordings that hosts rely on, written out here so that a slip in the library's table shows.
const Row kIntegers[] = {
    {"checkfreq", "60", 1, INT_MAX, false, "Check frequency", "Check frequency"},
    {"expfreq", "10000", 0, INT_MAX, false, "Expand frequency", "Expand frequency"},
    {"facfreq", "none", 0, INT_MAX, false, "Factorization frequency", "Factorization frequency"},
    {"hessdim", "none", 0, INT_MAX, false, "Hessian dimension", "Hessian dimension"},
    {"itlim", "none", 0, INT_MAX, false, "Iterations Limit", "Minor iterations limit"},
    {"parprice", "none", 1, INT_MAX, false, "Partial price", "Partial price"},
    {"printfreq", "100", 0, INT_MAX, false, "Print frequency", "Minor print frequency"},
    {"printlevel", "1", 0, INT_MAX, false, "Print level", "Minor print level"},
    {"scaleopt", "none", 0, 2, false, "Scale option", "Scale option"},
    {"suplim", "none", 1, INT_MAX, false, "Superbasics limit", "Superbasics limit"},
    {"elastic", "1", 0, 2, false, "Elastic mode", "Elastic mode"},
    {"elasticobj", "2", 0, 2, false, "Elastic objective", "Elastic objective"},
    {"hessfreq", "999999", 0, INT_MAX, false, nullptr, "Hessian frequency"},
    {"hessupd", "10", 0, INT_MAX, false, nullptr, "Hessian updates"},
    {"majitlim", "none", 0, INT_MAX, false, nullptr, "Major iterations limit"},
    {"majprintlevel", "1", 0, INT_MAX, false, nullptr, "Major print level"},
    {"majprintfreq", "100", 0, INT_MAX, false, nullptr, "Major print frequency"},
    {"newsuplim", "99", 0, INT_MAX, false, nullptr, "New superbasics limit"},
    {"proxmeth", "1", 1, 2, false, nullptr, "Proximal point method"},
    {"totitlim", "none", 0, INT_MAX, false, nullptr, "Iterations limit"},
    {"verify", "0", -1, 3, false, nullptr, "Verify level"},
};
const Row kReals[] = {
    {"elasticw", "none", 0, kInf, false, "Elastic weight", "Elastic weight"},
    {"feastol", "1e-06", 0, kInf, false, "Feasibility tolerance", "Minor feasibility tolerance"},
    {"infbound", "1e+20", 0, kInf, true, "Infinite bound size", "Infinite bound size"},
    {"opttol", "1e-06", 0, kInf, false, "Optimality tolerance", "Major optimality tolerance"},
    {"pivtol", "3.7e-11", 0, kInf, false, "Pivot tolerance", "Pivot tolerance"},
    {"scaletol", "0.9", 0, kInf, false, "Scale tolerance", "Scale tolerance"},
    {"cendiff", "6e-06", 0, kInf, false, nullptr, "Central difference interval"},
    {"diffint", "1.5e-08", 0, kInf, true, nullptr, "Difference interval"},
    {"funcprec", "3.8e-11", 0, kInf, false, nullptr, "Function precision"},
    {"linestol", "0.9", 0, 1.0, false, nullptr, "Linesearch tolerance"},
    {"majfeastol", "1e-06", 0, kInf, false, nullptr, "Major feasibility tolerance"},
    {"majsteplim", "2", 0, kInf, false, nullptr, "Major step limit"},
    {"viollim", "10", 0, kInf, false, nullptr, "Violation limit"},
};

class OptimProperties : public testing::Test
{
protected:
    OptimProperties() { qxoptim::initializeOptim(); }

    static std::string valueOf(const std::string& key)
    {
        Prop prop;
        prop.check(key);
        if (!prop.got(key))
            return "none";
        std::ostringstream out;
        out << prop.getDouble(key);
        return out.str();
    }
    static std::string idOfSetting(const std::string& key, const boost::any& value)
    {
        return idOf([&] {
            Prop prop;
            prop.setany(key, value);
            prop.check(key);
        });
    }
};

TEST_F(OptimProperties, ChecksSupplyTheDefaults)
{
    for (const Row& row : kIntegers)
        EXPECT_EQ(valueOf(row.property), row.fallback) << row.property;
    for (const Row& row : kReals)
        EXPECT_EQ(valueOf(row.property), row.fallback) << row.property;
}

TEST_F(OptimProperties, IntegersAreTakenUpToTheEndsOfTheirRanges)
{
    for (const Row& row : kIntegers) {
        EXPECT_EQ(idOfSetting(row.property, row.low), "") << row.property;
        EXPECT_EQ(idOfSetting(row.property, row.high), "") << row.property;
        EXPECT_EQ(idOfSetting(row.property, row.low - 1), "Invalid_property_value") << row.property;
        EXPECT_EQ(idOfSetting(row.property, row.high + 1), "Invalid_property_value") << row.property;
    }
}

TEST_F(OptimProperties, NumbersAreTakenUpToTheEndsOfTheirRangesUnlessTheseAreOpen)
{
    for (const Row& row : kReals) {
        const std::string atTheEnd = row.open ? "Invalid_property_value" : "";
        EXPECT_EQ(idOfSetting(row.property, row.low), atTheEnd) << row.property;
        EXPECT_EQ(idOfSetting(row.property, row.high), atTheEnd) << row.property;
        EXPECT_EQ(idOfSetting(row.property, 0.5), "") << row.property;
        EXPECT_EQ(idOfSetting(row.property, -1e-300), "Invalid_property_value") << row.property;
        EXPECT_EQ(idOfSetting(row.property, std::nan("")), "Invalid_property_value") << row.property;
    }
    EXPECT_EQ(idOfSetting("linestol", 1.0 + 1e-15), "Invalid_property_value");
}

TEST_F(OptimProperties, TextsAreChosenFromTheirLists)
{
    Prop prop;
    for (const char* key : {"maximize", "stop", "qpsolver", "linesearch", "hessmem", "print"})
        prop.check(key);

    EXPECT_EQ(prop.getInt("maximize"), 0);
    EXPECT_EQ(prop.getInt("stop"), 0); // the first of its list is "on"
    EXPECT_EQ(prop.getString("qpsolver"), "cholesky");
    EXPECT_EQ(prop.getString("linesearch"), "derivative");
    EXPECT_FALSE(prop.got("hessmem"));
    EXPECT_FALSE(prop.got("print"));
    for (const char* key : {"maximize", "stop", "qpsolver", "linesearch", "hessmem"})
        EXPECT_EQ(idOfSetting(key, std::string("perhaps")), "Invalid_property_value") << key;
    EXPECT_EQ(idOfSetting("hessmem", std::string("full")), "");
    EXPECT_EQ(idOfSetting("print", std::string("any name at all")), "");
}

TEST_F(OptimProperties, DescriptionsForDialogsStandWithTheValues)
{
    const qxoptim::Option* maximize = qxoptim::findOption("maximize");
    const qxoptim::Option* solver = qxoptim::findOption("qpsolver");

    EXPECT_STREQ(maximize->choices[0].second, "Minimize goal function");
    EXPECT_STREQ(maximize->choices[1].second, "Maximize goal function");
    EXPECT_STREQ(solver->choices[1].second, "Conjugate-gradient");
}

TEST_F(OptimProperties, KindsOfOptions)
{
    for (const Row& row : kIntegers) {
        EXPECT_TRUE(OptimState::isIntOption(row.property)) << row.property;
        EXPECT_FALSE(OptimState::isDoubleOption(row.property)) << row.property;
    }
    for (const Row& row : kReals) {
        EXPECT_FALSE(OptimState::isIntOption(row.property)) << row.property;
        EXPECT_TRUE(OptimState::isDoubleOption(row.property)) << row.property;
    }
    for (const char* key : {"maximize", "stop", "print", "qpsolver", "hessmem", "linesearch", "nothing"})
        EXPECT_FALSE(OptimState::isIntOption(key) || OptimState::isDoubleOption(key)) << key;
    EXPECT_EQ(qxoptim::optionTable().size(), std::size(kIntegers) + std::size(kReals) + 6);
}

TEST_F(OptimProperties, ChecksRefuseWhatIsNotOfTheirClass)
{
    const auto check = [](const char* key, void (*checker)(Prop&)) {
        Prop prop;
        prop.setany(key, key == std::string("unheard") ? boost::any(1) : boost::any(1.0));
        return idOf([&] { checker(prop); });
    };

    EXPECT_EQ(check("viollim", OptimState::checkNP), "");
    EXPECT_EQ(check("viollim", OptimState::checkQP), "Unknown_property");
    EXPECT_EQ(check("viollim", OptimState::checkCommon), "Unknown_property");
    EXPECT_EQ(check("feastol", OptimState::checkNP), "");
    EXPECT_EQ(check("feastol", OptimState::checkQP), "");
    EXPECT_EQ(check("feastol", OptimState::checkCommon), "Unknown_property");
    EXPECT_EQ(check("elasticw", OptimState::checkCommon), "");
    EXPECT_EQ(check("unheard", OptimState::checkNP), "Unknown_property");
    EXPECT_EQ(check("unheard", OptimState::checkQP), "Unknown_property");
}

// --- Sending options -------------------------------------------------------------------------------------------------------

std::string sent(const char* entry, const std::string& word, const std::string& value)
{
    return std::string(entry) + " '" + word + "' = " + value + " print 0";
}

TEST_F(OptimStateCalls, NonlinearDefaultsAreSentInTheOrderOfTheTables)
{
    const auto state = newState(true);
    Prop prop;
    OptimState::checkNP(prop);

    state->setNPOptions(prop);

    EXPECT_THAT(script->calls,
                ElementsAre("qxsnseti 'Check frequency' = 60 print 0", "qxsnseti 'Expand frequency' = 10000 print 0",
                            "qxsnsetr 'Infinite bound size' = 1e+20 print 0", "qxsnset 'Minimize' print 0",
                            "qxsnsetr 'Pivot tolerance' = 3.7e-11 print 0", "qxsnset 'QPSolver Cholesky      ' print 0",
                            "qxsnsetr 'Scale tolerance' = 0.9 print 0", "qxsnseti 'Elastic mode' = 1 print 0",
                            "qxsnseti 'Elastic objective' = 2 print 0",
                            "qxsnsetr 'Minor feasibility tolerance' = 1e-06 print 0",
                            "qxsnsetr 'Major optimality tolerance' = 1e-06 print 0",
                            "qxsnseti 'Minor print frequency' = 100 print 0",
                            "qxsnseti 'Minor print level' = 1 print 0",
                            "qxsnsetr 'Central difference interval' = 6e-06 print 0",
                            "qxsnsetr 'Difference interval' = 1.5e-08 print 0",
                            "qxsnsetr 'Function precision' = 3.8e-11 print 0",
                            "qxsnseti 'Hessian frequency' = 999999 print 0", "qxsnseti 'Hessian updates' = 10 print 0",
                            "qxsnset 'Derivative    line search' print 0",
                            "qxsnsetr 'Linesearch tolerance' = 0.9 print 0",
                            "qxsnsetr 'Major feasibility tolerance' = 1e-06 print 0",
                            "qxsnseti 'Major print level' = 1 print 0", "qxsnseti 'Major print frequency' = 100 print 0",
                            "qxsnsetr 'Major step limit' = 2 print 0",
                            "qxsnseti 'New superbasics limit' = 99 print 0",
                            "qxsnseti 'Proximal point method' = 1 print 0", "qxsnseti 'Verify level' = 0 print 0",
                            "qxsnsetr 'Violation limit' = 10 print 0"));
}

TEST_F(OptimStateCalls, EveryKeyIsSentUnderTheWordOfItsClass)
{
    for (const bool np : {true, false}) {
        const auto state = newState(np);
        const std::string prefix = np ? "qxsn" : "qxsq";
        Prop prop;
        std::vector<std::string> wanted;
        for (const Row& row : kIntegers)
            if (const char* word = np ? row.nonlinearWord : row.quadraticWord) {
                prop.setInt(row.property, 2);
                wanted.push_back(sent((prefix + "seti").c_str(), word, "2"));
            }
        for (const Row& row : kReals)
            if (const char* word = np ? row.nonlinearWord : row.quadraticWord) {
                prop.setDouble(row.property, 0.25);
                wanted.push_back(sent((prefix + "setr").c_str(), word, "0.25"));
            }
        (np ? OptimState::checkNP : OptimState::checkQP)(prop);
        script->calls.clear();

        np ? state->setNPOptions(prop) : state->setQPOptions(prop);

        for (const std::string& call : wanted)
            EXPECT_THAT(script->calls, testing::Contains(call)) << np;
        EXPECT_EQ(callsOf(prefix + "seti").size() + callsOf(prefix + "setr").size(), wanted.size());
    }
}

TEST_F(OptimStateCalls, CommonOptionsAloneLeaveTheClassOut)
{
    const auto state = newState(false);
    Prop prop;
    prop.setInt("printlevel", 3);
    prop.setInt("checkfreq", 4);

    state->setCommonOptions(prop);

    EXPECT_THAT(script->calls, ElementsAre("qxsqseti 'Check frequency' = 4 print 0"));
}

TEST_F(OptimStateCalls, WhatNoCheckHasSuppliedIsNotSent)
{
    const auto state = newState(true);

    state->setNPOptions(Prop());

    EXPECT_TRUE(script->calls.empty());
}

TEST_F(OptimStateCalls, LinesOfTheOtherOptionsAreSentByteForByte)
{
    const struct { const char *key, *value, *line; } lines[] = {
        {"maximize", "on", "Maximize"},
        {"maximize", "off", "Minimize"},
        {"qpsolver", "qn", "QPsolver QN         "},
        {"qpsolver", "cg", "QPsolver CG     "},
        {"qpsolver", "cholesky", "QPSolver Cholesky      "}, // the capital S is required
        {"hessmem", "limited", "Hessian limited memory"},
        {"hessmem", "full", "Hessian    full memory"},
        {"linesearch", "derivative", "Derivative    line search"},
        {"linesearch", "nonderivative", "Nonderivative line search"},
    };
    const auto state = newState(true);
    for (const auto& [key, value, line] : lines) {
        Prop prop;
        prop.setString(key, value);
        prop.check(key);
        script->calls.clear();

        state->setNPOptions(prop);

        EXPECT_THAT(script->calls, ElementsAre("qxsnset '" + std::string(line) + "' print 0"));
    }
}

TEST_F(OptimStateCalls, PrintFileIsOpenedBeforeAnyOption)
{
    const auto state = newState(false);
    Prop prop;
    prop.setString("print", "qp.out");
    prop.setInt("checkfreq", 4);

    state->setQPOptions(prop);

    EXPECT_THAT(script->calls, ElementsAre("qxsnopenappend 15 'qp.out'", "qxsqseti 'Print file' = 15 print 15",
                                           "qxsqseti 'Check frequency' = 4 print 15"));
}

TEST_F(OptimStateCalls, StopNeverReachesTheOptimizer)
{
    const auto state = newState(true);
    EXPECT_TRUE(state->isStopOn());
    Prop prop;
    prop.setString("stop", "off");
    prop.check("stop");

    state->setNPOptions(prop);

    EXPECT_FALSE(state->isStopOn());
    EXPECT_TRUE(script->calls.empty());
    prop.setString("stop", "on");
    prop.check("stop");
    state->setNPOptions(prop);
    EXPECT_TRUE(state->isStopOn());
}

TEST_F(OptimStateCalls, AnIndexBeyondTheChoicesRaises)
{
    const auto state = newState(true);
    Prop prop;
    prop.setInt("maximize", 7);

    EXPECT_EQ(idOf([&] { state->setNPOptions(prop); }), "Internal_error_optim");
}

TEST_F(OptimStateCalls, DerivativeLevelStartsAtOne)
{
    const auto state = newState(true);

    EXPECT_EQ(state->getDerivLevel(), 1);
    state->setDerivLevel(0);
    EXPECT_EQ(state->getDerivLevel(), 0);
}

// --- The documentation -----------------------------------------------------------------------------------------------------

std::string asText(double value)
{
    if (std::isinf(value))
        return "inf";
    std::ostringstream out;
    out.precision(10);
    out << value;
    return out.str();
}

/// The line of the page that stands for a row of the table.
std::string documented(const qxoptim::Option& option)
{
    using qxoptim::Home;
    using qxoptim::Kind;
    using qxoptim::RuleType;
    const bool integer = option.rule == RuleType::Integer, open = option.rule == RuleType::OpenReal;
    const bool number = integer || open || option.rule == RuleType::Real;
    std::string range = option.rule == RuleType::AnyText ? "any" : "";
    if (number)
        range = (open ? "(" : "[") + asText(option.low) + ", " + asText(option.high) + (open ? ")" : "]");
    for (const auto& [value, description] : option.choices)
        range += (range.empty() ? "" : ", ") + std::string(value);
    std::string word = option.property == std::string("print")  ? "print file name"
                       : option.property == std::string("stop") ? "stays with the driver"
                       : option.kind == Kind::Own               ? "lines, below"
                                                                : option.nonlinearWord;
    if (option.home == Home::Each)
        word = std::string(option.word) + "; " + option.nonlinearWord;
    const std::string fallback = option.fallback              ? asText(*option.fallback)
                                 : option.fallbackText != nullptr ? option.fallbackText
                                                                  : "none";
    const char* home = option.home == Home::Common ? "both" : option.home == Home::Each ? "quadratic; nonlinear" : "nonlinear";
    return std::string("| ") + option.property + " | " + (integer ? "integer" : number ? "number" : "text") + " | " + fallback +
           " | " + range + " | " + word + " | " + home + " |\n";
}

TEST_F(OptimProperties, ThePageHasALineForEach)
{
    std::ifstream in(QX_OPTIM_PAGE);
    std::ostringstream page;
    page << in.rdbuf();
    std::string table;
    for (const qxoptim::Option& option : qxoptim::optionTable())
        table += documented(option);

    EXPECT_THAT(page.str(), HasSubstr(table));
}

} // namespace
