// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"
#include "heat/mesh.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string kProgram = QX_HEAT;
const std::string kMesh = QX_EXAMPLE_DATA "/finned_pipe.msh";

using Words = std::vector<std::string>;

Words operator+(Words a, const Words& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Words fixedEverywhere(const std::string& formula, const Words& boundaries = {"inlet", "left", "right", "fins", "top", "bolts"})
{
    Words w;
    for (const std::string& b : boundaries)
        w = w + Words{"--fixed", b + ": " + formula};
    return w;
}

Outcome heat(const Words& words)
{
    return run(kProgram, Words{kMesh} + words);
}

double numberBehind(const Outcome& o, const std::string& label)
{
    EXPECT_EQ(o.status, 0) << o.err;
    const std::size_t at = o.out.find(label);
    EXPECT_NE(at, std::string::npos) << label << " in " << o.out;
    return at == std::string::npos ? NAN : std::atof(o.out.c_str() + at + label.size());
}

double errorOf(const Words& words, const std::string& exact)
{
    return numberBehind(heat(words + Words{"--exact", exact}), "L2 error");
}

// The error falls by four when the mesh width is halved: second order.
void expectSecondOrder(const Words& words, const std::string& exact)
{
    const double coarse = errorOf(words, exact);
    const double fine = errorOf(words + Words{"--refine", "1"}, exact);
    const double finest = errorOf(words + Words{"--refine", "2"}, exact);

    EXPECT_LT(coarse, 1e-3);
    EXPECT_NEAR(std::log2(coarse / fine), 2.0, 0.1);
    EXPECT_NEAR(std::log2(fine / finest), 2.0, 0.1);
}

} // namespace

TEST(Heat, TheKeptMeshHasItsBoundaries)
{
    const examples::NamedMesh m = examples::readMsh(kMesh);

    EXPECT_EQ(m.points.size(), 3895u);
    EXPECT_EQ(m.triangles.size(), 7240u);
    for (const char* name : {"inlet", "left", "right", "fins", "top", "bolts"})
        EXPECT_GE(m.boundary(name).size(), 9u) << name;
    EXPECT_EQ(m.boundary("left").size(), m.boundary("right").size());
}

TEST(Heat, ReproducesALinearSolutionWithFixedValuesAndFluxes)
{
    // u = 2+3x-y, k = 2: the flux k du/dn is 6 to the right and -6 to the left. Linear elements hold it exactly.
    const Words words = fixedEverywhere("2+3*x-y", {"inlet", "fins", "top", "bolts"}) +
                        Words{"--k", "2", "--flux", "left: -6", "--flux", "right: 6"};

    EXPECT_LT(errorOf(words, "2+3*x-y"), 1e-12);
}

TEST(Heat, ConvergesWithSecondOrderForAVariableConductivity)
{
    // u = sin(3x) cos(2y), k = 1+x/2: f = -(k_x u_x + k (u_xx + u_yy))
    expectSecondOrder(fixedEverywhere("sin(3*x)*cos(2*y)") +
                          Words{"--k", "1+0.5*x", "--source", "-1.5*cos(3*x)*cos(2*y)+13*(1+0.5*x)*sin(3*x)*cos(2*y)"},
                      "sin(3*x)*cos(2*y)");
}

TEST(Heat, ConvergesWithSecondOrderForAConductivityThatDependsOnU)
{
    // u as above, k = 1+u^2/5: f = -(k' |grad u|^2 + k (u_xx + u_yy)), k' = 2u/5
    const Words words =
        fixedEverywhere("v") +
        Words{"--define", "v=sin(3*x)*cos(2*y)", "--define", "slope2=9*(cos(3*x)*cos(2*y))^2+4*(sin(3*x)*sin(2*y))^2",
              "--k", "1+0.2*u^2", "--source", "-(0.4*v*slope2-13*(1+0.2*v^2)*v)"};

    expectSecondOrder(words, "v");
    const Outcome o = heat(words);
    EXPECT_GE(numberBehind(o, "solution"), 3.0); // Newton steps
    EXPECT_LE(numberBehind(o, "solution"), 8.0);
}

TEST(Heat, ConvergesWithSecondOrderForComplexValues)
{
    // u = exp(2(1+i)x): -(u_xx + u_yy) = -8i u
    expectSecondOrder(fixedEverywhere("exp(2*(1+i)*x)") + Words{"--complex", "--source", "-8*i*u"}, "exp(2*(1+i)*x)");
}

TEST(Heat, PeriodicBoundariesCarryAPeriodicSolution)
{
    // u = cos(2 pi x) exp(y): -(u_xx + u_yy) = (4 pi^2 - 1) u
    expectSecondOrder(fixedEverywhere("cos(2*pi*x)*exp(y)", {"inlet", "fins", "top", "bolts"}) +
                          Words{"--periodic", "left,right", "--source", "(4*pi^2-1)*cos(2*pi*x)*exp(y)"},
                      "cos(2*pi*x)*exp(y)");
}

TEST(Heat, AFilmIsAFluxThatDependsOnU)
{
    // Fixed to 7 at the bore and a film towards 7 everywhere else: u = 7.
    const Words words{"--fixed", "inlet: 7", "--flux", "fins: 3*(7-u)", "--flux", "top: 5*(7-u)"};

    EXPECT_LT(errorOf(words, "7"), 1e-11);
}

TEST(Heat, AMeanValueSettlesTheConstantOfAProblemWithoutFixedValues)
{
    // No heat made, none enters: u is constant, and its mean over the bore is 5.
    EXPECT_LT(errorOf({"--mean", "inlet: 5"}, "5"), 1e-10);
    EXPECT_LT(errorOf({"--mean", "inlet: 5", "--periodic", "left,right"}, "5"), 1e-10);
}

TEST(Heat, SameSolutionForOneAndTwoThreads)
{
    const ScratchDirectory scratch;
    const Words words{"--fixed", "inlet: 20+5*sin(10*y)", "--periodic", "left,right", "--k", "1+0.05*u", "--flux",
                      "fins: 3*(15-u)"};
    std::string first;
    for (const std::string threads : {"1", "2"}) {
        const std::string vtu = scratch.path(threads + ".vtu");
        EXPECT_EQ(heat(words + Words{"--threads", threads, "--vtu", vtu}).status, 0);
        const std::string text = ScratchDirectory::read(vtu);
        EXPECT_GT(text.size(), 100000u);
        if (first.empty())
            first = text;
        EXPECT_TRUE(text == first) << threads << " threads";
    }
}

TEST(Heat, WritesAPicture)
{
    const ScratchDirectory scratch;

    const Outcome o = heat({"--fixed", "inlet: 1", "--fixed", "fins: 0", "--plot", scratch.path("u.svg"), "--title", "a<b"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(ScratchDirectory::read(scratch.path("u.svg")), testing::AllOf(StartsWith("<svg"), HasSubstr("a&lt;b")));
}

TEST(Heat, AFailingFormulaNamesFormulaElementAndPoint)
{
    const Outcome o = heat({"--fixed", "inlet: 0", "--define", "a=sqrt(0.9-x)", "--k", "2*a"});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, testing::MatchesRegex("heat: conductivity fails in element [0-9]+ at x = 0\\.9[0-9]*, y = [-0-9.]+, "
                                             "u = 0\n  the value is complex: .*\n"));
}

TEST(Heat, AnElementErrorTellsItsStory)
{
    const Outcome o = heat({"--fixed", "inlet: 0", "--define", "a=erf(i*x)", "--source", "2*a"});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, testing::AllOf(StartsWith("heat: source fails in element 1 at x = "),
                                      HasSubstr("\n  erf: takes real arguments only"),
                                      HasSubstr("\n  in the definition  a = "), HasSubstr("\n  in the formula     2*a")));
}

TEST(Heat, BadInputIsToldInWords)
{
    const struct { Words words; const char* message; } cases[] = {
        {{"--fixed", "inlets: 0"}, "the mesh has no boundary 'inlets', only bolts, fins, inlet, left, right, top"},
        {{"--flux", "nose: 0"}, "the mesh has no boundary 'nose'"},
        {{"--periodic", "inlet,left"}, "boundaries 'inlet' and 'left' are not periodic"},
        {{"--fixed", "inlet: 1/(x-x)"}, "value fixed on inlet fails at x = 0."},
        {{"--fixed", "inlet: 1/(x-x)"}, "the value is infinite"},
        {{"--fixed", "inlet: 1/0"}, "value fixed on inlet fails at x = 0."},
        {{"--fixed", "inlet: 1/0"}, "the value is infinite: a division by zero, or a number too large"},
        {{"--flux", "inlet: 1/0"}, "the value is infinite: a division by zero"},
        {{"--fixed", "inlet: u"}, "value fixed on inlet may use x and y, not u"},
        {{"--fixed", "inlet: 1", "--k", "1+z"}, "z is neither a column nor a definition"},
        {{"--fixed", "inlet: 1", "--k", "1+("}, "conductivity cannot be read: 1+("},
        {{"--fixed", "inlet: 1", "--define", "u=1"}, "definition 'u' hides the variable of that name"},
        {{"--fixed", "inlet: 1", "--complex", "--k", "1+u"}, "complex problems must be linear in u"},
    };
    for (const auto& c : cases) {
        const Outcome o = heat(c.words);
        EXPECT_EQ(o.status, 1) << c.message;
        EXPECT_EQ(o.out, "");
        EXPECT_THAT(o.err, HasSubstr(c.message));
    }
}

TEST(Heat, ConditionsThatContradictEachOtherAreNamed)
{
    const std::string place = " at node [0-9]+ \\([-0-9.e]+, [-0-9.e]+\\)";
    const struct { Words words; std::string message; } cases[] = {
        {{"--periodic", "left,right", "--fixed", "left: 1", "--fixed", "right: 2"},
         "heat: condition [0-9]+, periodic left,right" + place + ", contradicts\n  condition [0-9]+, value fixed on left" +
             place + "\n  condition [0-9]+, value fixed on right" + place + "\n"},
        {{"--fixed", "inlet: 1", "--mean", "inlet: 2"},
         "heat: condition [0-9]+, mean over inlet, contradicts\n  condition 1, value fixed on inlet" + place +
             "\n(  condition [234], value fixed on inlet" + place + "\n)+  and [0-9]+ more\n"},
        {{"--mean", "inlet: 1", "--mean", "inlet: 2"},
         "heat: condition 2, mean over inlet, contradicts\n  condition 1, mean over inlet\n"},
        // The mean is 1 on the left and 2 on the right, and the two are the same.
        {{"--mean", "left: 1", "--periodic", "left,right", "--mean", "right: 2*x"},
         "heat: condition [0-9]+, mean over right, contradicts\n(  condition [0-9]+, .*\n)+  and [0-9]+ more\n"},
    };
    for (const auto& c : cases) {
        const Outcome o = heat(c.words);
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(o.out, "");
        EXPECT_TRUE(std::regex_match(o.err, std::regex(c.message))) << o.err << "\nnot\n" << c.message;
    }
}

TEST(Heat, ConditionsThatRepeatEachOtherAreObeyed)
{
    const Words flat{"--mean", "inlet: 5"};
    EXPECT_LT(errorOf(flat + Words{"--mean", "inlet: 5"}, "5"), 1e-10);
    EXPECT_LT(errorOf(flat + Words{"--fixed", "inlet: 5"}, "5"), 1e-10);
    EXPECT_LT(errorOf({"--fixed", "left: 5", "--fixed", "right: 5", "--periodic", "left,right", "--periodic", "right,left"},
                      "5"),
              1e-10);
}

TEST(Heat, AProblemThatSettlesNoConstantIsSingular)
{
    // Nothing is fixed: u + 1 solves as well as u, and with heat made inside there is no solution at all. Rounding hides
    // that from the pivots.
    for (const Words& words : {Words{}, Words{"--source", "1"}, Words{"--source", "x-0.5", "--periodic", "left,right"},
                               Words{"--complex", "--source", "x*i"}, Words{"--k", "0", "--fixed", "inlet: 1"}}) {
        const Outcome o = heat(words + Words{"--flux", "top: x"});
        EXPECT_EQ(o.status, 1) << o.out;
        EXPECT_EQ(o.out, "");
        EXPECT_THAT(o.err, StartsWith("heat: the matrix is singular: "));
    }
}

TEST(Heat, AProblemWithoutAnyHeatIsSingularAllTheSame)
{
    for (const Words& words : {Words{}, Words{"--periodic", "left,right"}, Words{"--k", "0", "--fixed", "inlet: 0"}})
        EXPECT_THAT(heat(words).err, StartsWith("heat: the matrix is singular: "));
}

TEST(Heat, RefusesTwoValuesForOneBoundary)
{
    const Outcome o = heat({"--fixed", "inlet: 1", "--fixed", "fins: 1", "--fixed", "inlet: 2"});

    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.err, "heat: --fixed: 'inlet' has two values\n");
}

TEST(Heat, AMissingOrDamagedMeshIsToldWithFileAndLine)
{
    const ScratchDirectory scratch;
    const std::string text = ScratchDirectory::read(kMesh);

    EXPECT_THAT(run(kProgram, {"/nowhere.msh"}).err, StartsWith("heat: /nowhere.msh: "));
    EXPECT_THAT(run(kProgram, {scratch.file("cut.msh", text.substr(0, text.size() / 2))}).err,
                testing::MatchesRegex("heat: .*cut\\.msh:[0-9]+: .*\n"));
}

TEST(Heat, ProgressIsForTerminalsOnly)
{
    const Outcome o = heat({"--fixed", "inlet: 1", "--refine", "3"});

    EXPECT_EQ(o.status, 0);
    EXPECT_THAT(o.err, testing::Not(testing::AnyOf(HasSubstr("\r"), HasSubstr("UMFPACK"))));
}

TEST(Heat, AFactorisationShowsItsProgressOnATerminalAndAnInterruptStopsItCleanly)
{
    if (!hasTerminals())
        GTEST_SKIP() << "no /dev/pts";
    const ScratchDirectory scratch;

    const Outcome o = runOnTerminal(kProgram, {kMesh, "--fixed", "inlet: 1", "--refine", "4", "--vtu", scratch.path("u.vtu")},
                                    "UMFPACK [", "\x03");

    EXPECT_EQ(o.status, 130);
    EXPECT_THAT(o.out, HasSubstr("factorise, solve ..."));
    EXPECT_THAT(o.out, testing::EndsWith("heat: stopped\r\n"));
    EXPECT_EQ(ScratchDirectory::read(scratch.path("u.vtu")), "");
}
