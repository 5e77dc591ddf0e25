// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxlib.hpp"

#include "qxexception.hpp"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using qxbase::Exception;
using qxbase::QxLib;

namespace {

/// The plug-in that the build makes beside the tests, under the name that a host on another system would use.
std::string pluginWithSuffix(const std::string& suffix)
{
    const std::string file = QX_TEST_PLUGIN;
    return file.substr(0, file.rfind('.')) + suffix;
}

int answerOf(const QxLib& library)
{
    return reinterpret_cast<int (*)()>(library.getSymbolAddress("qx_test_answer"))();
}

} // namespace

TEST(QxLib, OpensALibraryAndFindsItsEntryPoints)
{
    const QxLib library(pluginWithSuffix(".so"));

    EXPECT_EQ(answerOf(library), 42);
}

TEST(QxLib, ReplacesAForeignSuffix)
{
    const QxLib library(pluginWithSuffix(".dylib"));

    EXPECT_EQ(answerOf(library), 42);
    EXPECT_EQ(library.getName(), pluginWithSuffix(".so"));
}

TEST(QxLib, AMissingFileRaisesAndALaterCallWorks)
{
    try {
        QxLib("libqxnothere.dylib");
        FAIL() << "nothing raised";
    } catch (const Exception& e) {
        EXPECT_EQ(e.getId(), "Cannot_open_library");
        EXPECT_EQ(e.getArgs(0)[0], std::pair(std::string("Library"), std::string("libqxnothere.dylib")));
        EXPECT_NE(e.getArgs(0)[1].second.find("libqxnothere.so"), std::string::npos) << e.toString();
    }

    EXPECT_EQ(answerOf(QxLib(pluginWithSuffix(".so"))), 42);
}

TEST(QxLib, AnEmptyNameRaises) { EXPECT_THROW(QxLib(""), Exception); }

TEST(QxLib, AMissingSymbolRaises)
{
    const QxLib library(pluginWithSuffix(".so"));

    try {
        library.getSymbolAddress("qx_test_question");
        FAIL() << "nothing raised";
    } catch (const Exception& e) {
        EXPECT_EQ(e.getId(), "Symbol_not_found_in_library");
        EXPECT_EQ(e.getArgs(0)[1], std::pair(std::string("Symbol"), std::string("qx_test_question")));
    }
}
