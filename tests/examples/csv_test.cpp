// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/csv.hpp"
#include "support/fileerror.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>

using namespace examples;

namespace {

Table read(const std::string& text)
{
    std::istringstream in(text);
    return readCsv(in, "t.csv");
}

std::string errorOf(const std::string& text)
{
    try {
        read(text);
        return "no error";
    } catch (const FileError& e) {
        return e.what();
    }
}

} // namespace

TEST(Csv, ReadsNamedColumns)
{
    const Table t = read("x, y,T_1\n1,2.5,-3e2\n+4,.5,6.\n");

    EXPECT_EQ(t.names, (std::vector<std::string>{"x", "y", "T_1"}));
    EXPECT_EQ(t.column("x"), (std::vector<double>{1.0, 4.0}));
    EXPECT_EQ(t.column("y"), (std::vector<double>{2.5, 0.5}));
    EXPECT_EQ(t.column("T_1"), (std::vector<double>{-300.0, 6.0}));
}

TEST(Csv, TakesAnyLineEndingBlankLinesAndAByteOrderMark)
{
    const Table t = read("\xef\xbb\xbfx,y\r\n1,2\r\n\r\n3,4\r5,6\n\n");

    EXPECT_EQ(t.column("y"), (std::vector<double>{2.0, 4.0, 6.0}));
    EXPECT_EQ(t.lines, (std::vector<long>{2, 4, 5}));
}

TEST(Csv, ReadsNaNAndInfinitiesAndRoundsWhatIsOutOfRange)
{
    const Table t = read("x\nnan\ninf\n-inf\n1e999\n-1e999\n1e-999\n");

    const std::vector<double>& x = t.column("x");
    EXPECT_TRUE(std::isnan(x[0]));
    EXPECT_EQ(x[1], INFINITY);
    EXPECT_EQ(x[2], -INFINITY);
    EXPECT_EQ(x[3], INFINITY);
    EXPECT_EQ(x[4], -INFINITY);
    EXPECT_EQ(x[5], 0.0);
}

TEST(Csv, AHeaderWithoutRowsIsAnEmptyTable)
{
    const Table t = read("x,y\n");

    EXPECT_EQ(t.rows(), 0u);
    EXPECT_EQ(t.names.size(), 2u);
}

TEST(Csv, BadInputIsToldInOneLineWithFileAndLine)
{
    const std::string comma = "; numbers need a decimal point, and commas between them";
    const struct { const char* text; std::string error; } cases[] = {
        {"", "t.csv: is empty: the first line names the columns"},
        {"\n \n", "t.csv: is empty: the first line names the columns"},
        {"x,y\n1,2\n3\n", "t.csv:3: 1 field, the header names 2 columns"},
        {"x,y\n1,2,3\n", "t.csv:2: 3 fields, the header names 2 columns" + comma},
        {"x,y\n0,5,1,5\n", "t.csv:2: 4 fields, the header names 2 columns" + comma},
        {"x;y\n0,5;1,5\n", "t.csv:1: columns are parted by ';'" + comma},
        {"x\n1;5\n", "t.csv:2: '1;5' in column 'x' is no number" + comma},
        {"x,y\n1,\"2\"\n", "t.csv:2: '\"2\"' in column 'y' is no number" + comma},
        {"x,y\n1,\n", "t.csv:2: nothing in column 'y' is no number"},
        {"x,y\n1,2x\n", "t.csv:2: '2x' in column 'y' is no number"},
        {"x,y\n1,0x10\n", "t.csv:2: '0x10' in column 'y' is no number"},
        {"x,y\n1,+-2\n", "t.csv:2: '+-2' in column 'y' is no number"},
        {"x,x\n1,2\n", "t.csv:1: column 'x' is there twice"},
        {"x,\n1,2\n", "t.csv:1: '' is no column name"},
        {"1,2\n3,4\n", "t.csv:1: '1' is no column name"},
        {"x,nan\n3,4\n", "t.csv:1: 'nan' is no column name"},
        {"x,\"y\n3,4\n", "t.csv:1: the quotes around the column name 'y?3,4' do not fit"},
        {"x,\"y\"z\n3,4\n", "t.csv:1: the quotes around the column name 'y' do not fit"},
        {"x,y\"z\"\n3,4\n", "t.csv:1: 'y\"z\"' is no column name"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(errorOf(c.text), c.error) << c.text;
}

TEST(Csv, ShowsNothingThatATerminalWouldActOn)
{
    const std::string error = errorOf(std::string("x\n\x1b[2J") + std::string(1000, 'a') + "\n");

    EXPECT_EQ(error.find('\x1b'), std::string::npos);
    EXPECT_LT(error.size(), 120u);
}

TEST(Csv, AMissingColumnIsNamed)
{
    try {
        read("x\n1\n").column("y");
        FAIL() << "no error";
    } catch (const FileError& e) {
        EXPECT_STREQ(e.what(), "t.csv: there is no column 'y'");
    }
}

TEST(Csv, AFileThatIsNotThereOrADirectoryIsToldByName)
{
    for (const std::string name : {"/nowhere/t.csv", "/"})
        try {
            readCsv(name);
            FAIL() << name;
        } catch (const FileError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(name + ": ", 0), 0u) << e.what();
        }
}

TEST(Csv, WhatIsWrittenReadsBackToTheSameBits)
{
    const std::vector<double> values{0.1, -0.0, 1e-310, std::numeric_limits<double>::max(), 2.0 / 3.0, INFINITY};
    CsvWriter writer;
    writer.add("v", values);
    std::ostringstream out;

    writer.write(out);

    const Table t = read(out.str());
    ASSERT_EQ(t.rows(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(t.column("v")[i], values[i]);
        EXPECT_EQ(std::signbit(t.column("v")[i]), std::signbit(values[i]));
    }
}

TEST(Csv, ReadsEveryNameThatIsWritten)
{
    const std::vector<std::string> names{"f", "d(f,x)", "x^2-y", "3", "-1e5", "nan", "say \"f(x)\"", "\"", "a;b", "two\nlines",
                                         " blanks ", "temperatur_\xc3\xa4", "", ",,"};
    const std::vector<double> values{1.5, std::nan(""), -std::nan("")};
    CsvWriter writer;
    for (const std::string& name : names)
        writer.add(name, values);
    std::ostringstream out;

    writer.write(out);

    const Table t = read(out.str());
    EXPECT_EQ(t.names, names);
    ASSERT_EQ(t.rows(), 3u);
    for (const std::string& name : names) {
        EXPECT_EQ(t.column(name)[0], 1.5) << name;
        EXPECT_TRUE(std::isnan(t.column(name)[1]) && std::isnan(t.column(name)[2])) << name;
    }
    EXPECT_EQ(out.str().find("-nan"), std::string::npos);
    EXPECT_EQ(t.variables(), (std::vector<std::string>{"f", "nan"}));
}

TEST(Csv, LinesAreCountedBehindANameOfTwoLines)
{
    EXPECT_EQ(errorOf("x,\"a\nb\"\n1,2\n3\n"), "t.csv:4: 1 field, the header names 2 columns");
}

TEST(Csv, WritesComplexColumnsAsTwoAndQuotesNamesWithCommas)
{
    const std::vector<std::complex<double>> z{{1.0, 2.0}, {-0.5, 0.0}};
    const std::vector<double> d{3.0, 4.0};
    CsvWriter writer;
    writer.add("z", z);
    writer.add("d(f,x)", d);
    std::ostringstream out;

    writer.write(out);

    EXPECT_EQ(out.str(), "z.re,z.im,\"d(f,x)\"\n1,2,3\n-0.5,0,4\n");
}
