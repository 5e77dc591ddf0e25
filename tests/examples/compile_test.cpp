// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Compile : public testing::Test
{
protected:
    ScratchDirectory scratch;
    const std::string file = scratch.path("Fin.class");

    static Outcome compile(const std::vector<std::string>& arguments) { return run(QX_COMPILE, arguments); }
    Outcome compiled(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), {"-o", file});
        return compile(arguments);
    }
};

bool hasJava() { return std::system("java -version > /dev/null 2>&1") == 0; }

const std::vector<std::string> fin{"--class", "Fin", "--inputs", "x,y,T", "--define", "h=6*(1+0.02*T)",
                                   "q=h*(T-20)*exp(-x^2)", "--gradient", "x,T"};

} // namespace

TEST_F(Compile, WritesTheClassAndTellsHowToCallIt)
{
    const Outcome o = compiled(fin);

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.err, "");
    EXPECT_THAT(o.out, StartsWith("// " + file + ": static int Fin.eval(double[] in, double[] out)\n"
                                  "//   in:  0 x, 1 y, 2 T\n"
                                  "//   out: 0 q, 1 d(q,x), 2 d(q,T)\n"));
    EXPECT_THAT(o.out, HasSubstr("int status = Fin.eval(new double[] {x, y, T}, out);"));
    EXPECT_EQ(ScratchDirectory::read(file).substr(0, 4), "\xCA\xFE\xBA\xBE");
}

TEST_F(Compile, InterpretsAtAPoint)
{
    // By hand at x = 0, T = 70: h = 14.4, q = 720; dq/dx = 0; dq/dT = 0.12 * 50 + 14.4 = 20.4.
    std::vector<std::string> arguments = fin;
    arguments.insert(arguments.end(), {"--eval", "0,0.2,70"});
    const Outcome o = compiled(arguments);

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("\nq = 720"));
    EXPECT_THAT(o.out, HasSubstr("\nd(q,T) = 20.4"));
}

TEST_F(Compile, ListsTheDefinitions)
{
    const Outcome o = compiled({"--inputs", "a", "y=sin(a)*sin(a)", "--list"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("1 inputs:\n  a\n1 outputs:\n"));
    EXPECT_THAT(o.out, HasSubstr("=sin(a)\n"));
}

TEST_F(Compile, ReadsPrefixText)
{
    const Outcome o = compiled({"--inputs", "a,b", "--prefix", "y=+ a * a b", "--eval", "2,3"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("y = 8\n"));
}

TEST_F(Compile, ConditionsHaveDerivatives)
{
    const Outcome o = compiled({"--inputs", "a", "y=if(a>1,a^2,3*a)", "--gradient", "a", "--eval", "0.5"});

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("y = 1.5\nd(y,a) = 3\n"));
}

TEST_F(Compile, PointsAtTheMistake)
{
    struct Row
    {
        const char *formula, *message, *caret;
    };
    for (const Row& row : {Row{"q=x*(T-20", "this is no formula", "           ^"}, Row{"q=x+*T", "this is no formula", "        ^"},
                           Row{"q=x*foo", "foo is neither an input nor a definition", "        ^"},
                           Row{"q=x*fox(T)", "there is no function fox", "        ^"},
                           Row{"q=1+erf(x)", "erf has no form in compiled code", "        ^"},
                           Row{"q=sin(x,T)", "sin takes another number of arguments", "      ^"}}) {
        const Outcome o = compiled({"--inputs", "x,T", row.formula});
        const std::string text(row.formula);
        EXPECT_EQ(o.status, 1) << text;
        const std::string wanted = "compile: " + std::string(row.message) + "\n  q = " + text.substr(2) + "\n";
        EXPECT_THAT(o.err, StartsWith(wanted));
        EXPECT_THAT(o.err.substr(std::min(o.err.size(), wanted.size())), testing::EndsWith("^\n"));
    }
    EXPECT_EQ(ScratchDirectory::read(file), "");
}

TEST_F(Compile, NamesTheDefinitionWithTheMistake)
{
    const Outcome o = compiled({"--inputs", "x", "--define", "h=2*unknown", "q=h*x"});

    EXPECT_EQ(o.err, "compile: unknown is neither an input nor a definition\n  h = 2*unknown\n        ^\n");
}

TEST_F(Compile, DefinitionsThatGoRoundAreNamed)
{
    const Outcome o = compiled({"--inputs", "x", "--define", "a=b+1", "--define", "b=a+1", "q=a*x"});

    EXPECT_EQ(o.status, 1);
    EXPECT_THAT(o.err, StartsWith("compile: Cyclic dependency for definition #"));
}

TEST_F(Compile, RefusesNamesThatJavaRefuses)
{
    for (const char* name : {"", "1Fin", "com..Fin", "com/x/", "class", "a b", "Fin;", "com.int.Fin"}) {
        const Outcome o = compiled({"--class", name, "q=1"});
        EXPECT_EQ(o.status, 2) << name;
        EXPECT_THAT(o.err, HasSubstr("is no name of a Java class"));
    }
    EXPECT_EQ(compiled({"--class", "com.x.Fin", "q=1"}).status, 0);
    EXPECT_EQ(compiled({"--class", "com/x/Fin", "q=1"}).status, 0);
    EXPECT_EQ(compiled({"--method", "<init>", "q=1"}).status, 2);
    EXPECT_EQ(compiled({"--method", "main", "--main", "q=1"}).status, 2);
}

TEST_F(Compile, RefusesCommandLinesThatMakeNoSense)
{
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {}, {"--inputs", "x,x", "q=x"}, {"--inputs", "x", "x=1"}, {"q=1", "q=2"}, {"--gradient", "x", "q=1"},
             {"--inputs", "x", "--eval", "1,2", "q=x"}, {"--inputs", "x", "--eval", "z", "q=x"}})
        EXPECT_EQ(compile(arguments).status, 2);
    EXPECT_EQ(compile({"--help"}).status, 0);
    const Outcome full = compile({"-o", "/dev/full", "q=1"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "compile: Cannot_create_native_file: /dev/full\n");
}

TEST_F(Compile, FailureAtAPointIsReportedByTheInterpreter)
{
    const Outcome o = compiled({"--inputs", "T", "q=sqrt(T-100)", "--eval", "80"});
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "compile: Sqrt_of_negative\n");
}

TEST_F(Compile, DriverRunsUnderJava)
{
    if (!hasJava())
        GTEST_SKIP() << "no java command";
    std::vector<std::string> arguments = fin;
    arguments.push_back("--main");
    ASSERT_EQ(compiled(arguments).status, 0);

    const Outcome o = run("/usr/bin/env", {"java", "-Xverify:all", "-cp", file.substr(0, file.rfind('/')), "Fin", "0", "0.2", "70"});

    EXPECT_THAT(o.out, StartsWith("720.0"));
}

TEST_F(Compile, ClassAndInterpreterAgreeOverATable)
{
    if (std::system("javac -version > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "no Java compiler";
    const std::string points = scratch.file("p.csv", "T,x,y\n20,0.1,0\n35,0.2,1\n90,0.4,1\n"), values = scratch.path("v.csv");
    ASSERT_EQ(compiled(fin).status, 0);
    const Outcome java = run("/usr/bin/env", {"java", "-cp", file.substr(0, file.rfind('/')), QX_OVER_POINTS, "Fin", "x,y,T", points, values});
    ASSERT_EQ(java.status, 0) << java.err;

    std::vector<std::string> arguments = fin;
    arguments.insert(arguments.end(), {"--points", points, "--beside", values});
    const Outcome o = compiled(arguments);

    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_THAT(o.out, testing::ContainsRegex("largest difference over 3 rows: [0-9.]+(e-1[4-9])?, relative"));
}
