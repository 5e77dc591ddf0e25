// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interpfilereader.hpp"

#include "interp_values.hpp"
#include "support/alloc_fault.hpp"
#include "support/comma_locale.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace interptest;

namespace {

InterpTableData readText(const std::string& text, int nAxes = 0)
{
    std::istringstream stream(text);
    return InterpFileReader(nAxes).read(stream, "table.txt");
}

/// "line:column reason" of a refused file.
std::string refusal(const std::string& text, int nAxes = 0)
{
    const qxbase::Exception e = failureOf([&] { readText(text, nAxes); });
    if (e.size() == 0)
        return "accepted";
    EXPECT_EQ(e.getId(), "Invalid_table_file");
    EXPECT_EQ(e.getFile(0), "interpfilereader");
    const auto& args = e.getArgs(0);
    EXPECT_EQ(args.at(0), (std::pair<std::string, std::string>("File", "table.txt")));
    return args.at(1).second + ":" + args.at(2).second + " " + args.at(3).second;
}

using Numbers = std::vector<double>;
using Names = std::vector<std::string>;

void expectSteel(const std::string& text)
{
    const InterpTableData t = readText(text);

    EXPECT_EQ(*t.axes, (Axes{{20.0, 100.0, 200.5}})) << text;
    ASSERT_EQ(t.values.size(), 2u) << text;
    EXPECT_EQ(*t.values[0], (Numbers{53.3, 50.7, -4.73e1})) << text;
    EXPECT_EQ(*t.values[1], (Numbers{440.0, 488.0, 530.0})) << text;
}

} // namespace

TEST(InterpFileReader, ReadsColumnsWithEverySeparator)
{
    expectSteel("20 53.3 440\n100 50.7 488\n200.5 -4.73e1 530\n");
    expectSteel("20\t53.3\t440\n100\t50.7\t488\n200.5\t-4.73e1\t530\n");
    expectSteel("20,53.3,440\n100,50.7,488\n200.5,-4.73e1,530\n");
    expectSteel("20;53.3;440\n100;50.7;488\n200.5;-4.73e1;530\n");
    expectSteel("  20 ; 53.3 ;\t440\n100; 50.7; 488 \n200.5; -4.73e1; +530.0\n");
    expectSteel("20, 53.3, 440\n100 ,50.7 , 488\n200.5,-4.73e1,530");
}

TEST(InterpFileReader, AcceptsEveryLineEndAndAByteOrderMark)
{
    expectSteel("20 53.3 440\r\n100 50.7 488\r\n200.5 -4.73e1 530\r\n");
    expectSteel("20 53.3 440\r100 50.7 488\r200.5 -4.73e1 530");
    expectSteel("\xef\xbb\xbf" "20 53.3 440\n100 50.7 488\n200.5 -4.73e1 530\n");
    expectSteel("\xef\xbb\xbf" "T k c\n20 53.3 440\n100 50.7 488\n200.5 -4.73e1 530\n");
}

TEST(InterpFileReader, PassesOverCommentsAndEmptyLines)
{
    expectSteel("% a steel\n\n# its source\n20 53.3 440 % at room temperature\n   \n100 50.7 488 # warm\n%\n200.5 -4.73e1 530\n#");
}

TEST(InterpFileReader, TakesAFirstLineOfNamesAsHeader)
{
    const InterpTableData t = readText("% table\nT, \"k [W/(m*K)]\", nanoc\n20,1,2\n30,3,4\n");

    EXPECT_EQ(t.axisNames, Names{"T"});
    EXPECT_EQ(t.names, (Names{"k [W/(m*K)]", "nanoc"}));
    EXPECT_EQ(*t.values[1], (Numbers{2.0, 4.0}));
    EXPECT_EQ(readText("20 1\n30 3\n").names, Names{""});
    EXPECT_EQ(readText("info k\n20 1\n30 3\n").axisNames, Names{"info"});
    EXPECT_EQ(refusal("T k\n20 1 2\n"), "2:0 3 numbers under 2 names");
    EXPECT_EQ(refusal("T k\nu v\n"), "2:1 'u' is not a number");
}

TEST(InterpFileReader, ReadsRowsOfAFullGridInAnyOrder)
{
    const std::string text = "x,y,v,w\n1,5,2,20\n0,7,3,30\n0,5,1,10\n1,7,4,40\n2,5,9,90\n2,7,8,80\n";

    const InterpTableData t = readText(text);

    EXPECT_EQ(*t.axes, (Axes{{0.0, 1.0, 2.0}, {5.0, 7.0}}));
    EXPECT_EQ(t.axisNames, (Names{"x", "y"}));
    EXPECT_EQ(t.names, (Names{"v", "w"}));
    EXPECT_EQ(*t.values[0], (Numbers{1.0, 2.0, 9.0, 3.0, 4.0, 8.0}));
    EXPECT_EQ(*t.values[1], (Numbers{10.0, 20.0, 90.0, 30.0, 40.0, 80.0}));
    EXPECT_EQ(*readText(text, 2).values[0], *t.values[0]);
}

TEST(InterpFileReader, FindsThreeAxesOrTakesThemOnRequest)
{
    std::string text;
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 2; ++x)
                text += std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(z) + " " +
                        std::to_string(x + 10 * y + 100 * z) + "\n";

    for (int nAxes : {0, 3}) {
        const InterpTableData t = readText(text, nAxes);
        EXPECT_EQ(*t.axes, (Axes{{0.0, 1.0}, {0.0, 1.0, 2.0}, {0.0, 1.0}}));
        EXPECT_EQ(*t.values[0], (Numbers{0, 1, 10, 11, 20, 21, 100, 101, 110, 111, 120, 121}));
    }
    EXPECT_EQ(refusal(text, 1), "3:1 0 does not ascend from 1 in line 2");
    EXPECT_EQ(refusal(text, 4), "1:0 4 columns are too few for 4 coordinates and a value");
}

TEST(InterpFileReader, RefusesRowsThatAreNoFullGrid)
{
    EXPECT_EQ(refusal("0 0 1\n1 0 2\n0 1 3\n", 2), "3:0 3 lines do not fill a grid of 2 x 2 points");
    EXPECT_EQ(refusal("0 0 1\n1 0 2\n0 1 3\n0 1 4\n", 2), "4:0 the point of line 3 again");
    EXPECT_EQ(refusal("0 0 1\n1 0 2\n0 1 3\n"), "3:1 0 does not ascend from 1 in line 2");
}

TEST(InterpFileReader, ReadsGridFiles)
{
    const InterpTableData t = readText("# made by hand\n% Grid\n0 1 2\n10, 20\n% Data pressure\n1 2 3\n4\n5 6\n\n# data 'flow rate'\n6 5 4 3 2 1\n");

    EXPECT_EQ(*t.axes, (Axes{{0.0, 1.0, 2.0}, {10.0, 20.0}}));
    EXPECT_EQ(t.names[0], "pressure");
    EXPECT_EQ(t.axisNames, (Names{"", ""}));
    EXPECT_EQ(*t.values[0], (Numbers{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(*t.values[1], (Numbers{6, 5, 4, 3, 2, 1}));
}

TEST(InterpFileReader, RefusesGridFilesWithLineAndColumn)
{
    EXPECT_EQ(refusal("% grid\n0 1 1\n% data\n1 2 3\n"), "2:3 1 does not ascend from 1");
    EXPECT_EQ(refusal("% grid\n0 1\n% data\n1 2x\n"), "4:2 '2x' is not a number");
    EXPECT_EQ(refusal("% grid\n0 1\n% data\n1\n"), "4:0 1 values for the 2 points of the grid");
    EXPECT_EQ(refusal("% grid\n0 1\n% data\n1 2 3\n"), "4:3 more values than the grid has points, 2");
    EXPECT_EQ(refusal("% grid\n% data\n1\n"), "2:0 there is no axis before the values");
    EXPECT_EQ(refusal("% grid\n0 1\n"), "3:0 the file ends before its values");
    EXPECT_EQ(refusal("% grid\n0 1\n% data\n1 2\n", 2), "3:0 1 axes, wanted are 2");
}

TEST(InterpFileReader, RefusesAnEmptyFile)
{
    EXPECT_EQ(refusal(""), "1:0 the file has no numbers");
    EXPECT_EQ(refusal("\n\n% nothing\n"), "4:0 the file has no numbers");
    EXPECT_EQ(refusal("T k\n"), "2:0 the file has no numbers");
    EXPECT_EQ(refusal("1\n2\n"), "1:0 one column is no table: coordinates and values are needed");
}

TEST(InterpFileReader, RefusesRaggedRows)
{
    EXPECT_EQ(refusal("0 1\n1 2 3\n"), "2:3 3 numbers in a table of 2 columns");
    EXPECT_EQ(refusal("0 1 2\n1 2\n"), "2:3 2 numbers in a table of 3 columns");
    EXPECT_EQ(refusal("0,1\n1,\n"), "2:2 a number is missing");
    EXPECT_EQ(refusal("0;1\n;5\n"), "2:1 a number is missing");
}

TEST(InterpFileReader, RefusesALetterInANumber)
{
    EXPECT_EQ(refusal("0 1\n1 2O\n"), "2:2 '2O' is not a number");
    EXPECT_EQ(refusal("0 1\n\n1e 2\n"), "3:1 '1e' is not a number");
    EXPECT_EQ(refusal("0 1\n0x10 2\n"), "2:1 '0x10' is not a number");
    EXPECT_EQ(refusal("0 1\nT 2\n"), "2:1 'T' is not a number");
    EXPECT_EQ(refusal("0 1\n" + std::string(100, 'z') + " 2\n"), "2:1 '" + std::string(40, 'z') + "...' is not a number");
}

TEST(InterpFileReader, RefusesNumbersThatAreNotFinite)
{
    EXPECT_EQ(refusal("0 1\n1 nan\n"), "2:2 'nan' is not a finite number");
    EXPECT_EQ(refusal("nan 1\n1 2\n"), "1:1 'nan' is not a finite number");
    EXPECT_EQ(refusal("-inf 1\n1 2\n"), "1:1 '-inf' is not a finite number");
    EXPECT_EQ(refusal("0 1\n1 1e999\n"), "2:2 '1e999' is not a finite number");
}

TEST(InterpFileReader, RefusesADecimalCommaWithAHint)
{
    EXPECT_EQ(refusal("0;1\n0,5;2\n"), "2:1 '0,5' is not a number: a decimal comma? Write a decimal point, 1.5");
    EXPECT_EQ(refusal("0,5 1,2\n"), "1:2 '5 1' is not a number: a decimal comma? Write a decimal point, 1.5");
    EXPECT_EQ(refusal("20\t53,3\n"), "1:1 '20\t53' is not a number: a decimal comma? Write a decimal point, 1.5");
}

TEST(InterpFileReader, RefusesDescendingAndRepeatedCoordinates)
{
    EXPECT_EQ(refusal("0 1\n\n2 1\n1 5\n"), "4:1 1 does not ascend from 2 in line 3");
    EXPECT_EQ(refusal("0 1\n0 1\n"), "2:1 0 does not ascend from 0 in line 1");
    EXPECT_EQ(refusal("x y\n2 1 \n1 2\n"), "3:1 1 does not ascend from 2 in line 2");
}

TEST(InterpFileReader, NamesAFileThatIsNotThereOrCannotBeRead)
{
    const std::string missing = testing::TempDir() + "no_such_table.csv";
    const qxbase::Exception e = failureOf([&] { InterpFileReader().read(missing); });

    EXPECT_EQ(e.getId(), "Cannot_open_table_file");
    EXPECT_EQ(e.getArgs(0).at(0), (std::pair<std::string, std::string>("File", missing)));
    EXPECT_EQ(idOf([] { InterpFileReader().read(testing::TempDir()); }), "Invalid_table_file"); // a folder
}

TEST(InterpFileReader, ReadsFromADiskAsFromAStream)
{
    const std::string path = testing::TempDir() + "interpfilereader_test.csv";
    std::ofstream(path) << "0;1\r\n2;3\r\n";

    const InterpTableData t = InterpFileReader().read(path);

    EXPECT_EQ(*t.axes, (Axes{{0.0, 2.0}}));
    std::filesystem::remove(path);
}

TEST(InterpFileReader, ReadsTheSameNumbersUnderALocaleWithDecimalComma)
{
    const qxtest::CommaLocale locale;
    ASSERT_TRUE(qxtest::CommaLocale::isInForce());

    const InterpTableData t = readText("0.5 1.25\n1.5 1e3\n");

    EXPECT_EQ(*t.axes, (Axes{{0.5, 1.5}}));
    EXPECT_EQ(refusal("0.5 1\n0.25 2\n"), "2:1 0.25 does not ascend from 0.5 in line 1");
}

TEST(InterpFileReader, ReadsAMillionLines)
{
    std::string text;
    for (int i = 0; i < 1000000; ++i)
        text += std::to_string(i) + " 1\n";

    const InterpTableData t = readText(text);

    EXPECT_EQ(t.axes->front().size(), 1000000u);
    EXPECT_EQ(t.axes->front().back(), 999999.0);
    EXPECT_EQ(refusal(text + "5 1\n"), "1000001:1 5 does not ascend from 999999 in line 1000000");
}

TEST(InterpFileReader, SurvivesEveryFailingAllocation)
{
    for (const char* text : {"T k\n0 1\n1 2\n2 3\n", "x,y,v\n0,0,1\n1,0,2\n0,1,3\n1,1,4\n", "% grid\n0 1\n0 1\n% data p\n1 2 3 4\n",
                             "0 1\n1 oh\n"}) {
        const auto act = [&] {
            try {
                readText(text);
            } catch (const qxbase::Exception&) { // what the last text is for
            }
        };
        const long count = qxtest::failEveryAllocation(act, [&](const qxtest::FaultRun& run) {
            EXPECT_EQ(run.badAlloc, run.faulted) << text << run.n;
            EXPECT_EQ(run.leaked, 0) << text << run.n;
        });
        EXPECT_GT(count, 5) << text;
    }
}

TEST(InterpTable, NamesOfExtensionsMeanTheSameForEveryMethod)
{
    const InterpTableData data = readText("0 1\n1 2\n2 5\n"); // 1 + x^2
    const auto value = [&](const char* method, const char* extension, double x) {
        const InterpTable t = makeInterpolator(data, 0, {method, extension});
        EXPECT_FALSE(t.errorOutside);
        return at(t.interpolator, {x});
    };

    for (const char* method : {"neighbor", "linear", "piecewisecubic", "cubicspline"}) {
        EXPECT_EQ(value(method, "clamp", 4.0), 5.0) << method;
        EXPECT_EQ(value(method, "value=-7.5", 4.0), -7.5) << method;
        EXPECT_EQ(value(method, "value=0", -1e-9), 0.0) << method;
    }
    EXPECT_EQ(value("linear", "linear", 4.0), 11.0);
    EXPECT_EQ(value("cubicspline", "linear", 4.0), 13.0);
    EXPECT_EQ(value("cubicspline", "polynomial", 4.0), 17.0);
}

TEST(InterpTable, ErrorMarksTheTableAndClamps)
{
    const InterpTable t = makeInterpolator(readText("0 1\n1 2\n2 5\n"), 0, {"cubicspline", "error"});

    EXPECT_TRUE(t.errorOutside);
    EXPECT_EQ(at(t.interpolator, {9.0}), 5.0);
}

TEST(InterpTable, RefusesAnExtensionThatTheMethodHasNot)
{
    const InterpTableData data = readText("0 1\n1 2\n2 5\n");
    const auto id = [&](const char* method, const char* extension) {
        return idOf([&] { makeInterpolator(data, 0, {method, extension}); });
    };

    for (const char* extension : {"linear", "polynomial", "", "Clamp", "value", "value=", "value=x", "value=1,5", "none"})
        EXPECT_EQ(id("neighbor", extension), "Unknown_extrapolation_method") << extension;
    EXPECT_EQ(id("linear", "polynomial"), "Unknown_extrapolation_method");
    EXPECT_EQ(id("spline", "clamp"), "Unknown_interpolation_method");
    EXPECT_EQ(id("spline", "none"), "Unknown_interpolation_method");
    EXPECT_EQ(idOf([&] { makeInterpolator(data, 1, {}); }), "Wrong_size_of_interpolation_data");
}
