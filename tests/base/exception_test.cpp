// SPDX-License-Identifier: LicenseRef-qxkernel
#include "errinfo.hpp"
#include "qxexception.hpp"
#include "support/alloc_fault.hpp"
#include "support/deep_stack.hpp"

#include <gtest/gtest.h>

using qxbase::CancelException;
using qxbase::Exception;
using qxbase::ParallelException;

TEST(Exception, AddPushesContextOnATravellingException)
{
    Exception seen;

    try {
        try {
            QX_RAISE("inner", "Divide_by_zero", "Value", 7);
        } catch (Exception& e) {
            e.add("outer", 12, "Evaluation_internal_error", {{"Name", "x"}});
            throw;
        }
    } catch (Exception& e) {
        seen = e;
    }

    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen.getId(), "Divide_by_zero");
    EXPECT_EQ(seen.getFile(0), "inner");
    EXPECT_EQ(seen.getArgs(0), (qxbase::ExceptionArgs{{"Value", "7"}}));
    EXPECT_EQ(seen.getId(1), "Evaluation_internal_error");
    EXPECT_EQ(seen.getLine(1), 12);
}

TEST(Exception, TwoStringsMakeOneKeyAndItsValue)
{
    const Exception e("exprimpl", 1, "Syntax_error_in_expression", "Expression", "1+");

    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Expression", "1+"}}));
}

TEST(Exception, OneStringIsAKeyWithoutValue)
{
    const Exception e("a", 1, "Id", "Key");

    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Key", ""}}));
}

TEST(Exception, LiteralZeroIsANumber)
{
    const Exception e("a", 1, "Id", "Error_code", 0);

    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"Error_code", "0"}}));
}

TEST(Exception, CopyIsIndependent)
{
    Exception a("m", 1, "Id");
    Exception b = a;

    b.add("n", 2, "Other");

    EXPECT_EQ(a.size(), 1u);
    EXPECT_EQ(b.size(), 2u);
}

TEST(Exception, IdentifiersWithAndWithoutFinalStopDiffer)
{
    EXPECT_NE(Exception("sparse", 1, "Internal_error_sparse_matrix").getId(),
              Exception("sparse", 1, "Internal_error_sparse_matrix.").getId());
}

TEST(ParallelException, KeepsTheFirstOfTwo)
{
    ParallelException p;
    p.storeException(Exception("m", 1, "First"));
    p.storeException(Exception("m", 2, "Second"));

    try {
        p.throwException();
        FAIL() << "nothing raised";
    } catch (Exception& e) {
        EXPECT_EQ(e.getId(), "First");
    }
}

TEST(ParallelException, RaisesNothingWhenNothingWasStored)
{
    ParallelException p;

    EXPECT_NO_THROW(p.throwException());
}

TEST(ParallelException, ACancelStaysACancel)
{
    ParallelException p;
    p.storeException(CancelException("m", 1));

    EXPECT_THROW(p.throwException(), CancelException);
}

TEST(ErrInfo, EmptyUntilALineIsOpened)
{
    ErrInfo errors;
    EXPECT_TRUE(errors.isEmpty());

    errors["message"] = "sqrt";

    EXPECT_FALSE(errors.isEmpty());
    EXPECT_EQ(errors.get(0, "message"), "sqrt");
}

TEST(ErrInfo, MakesOneEntryALineWithMessageAsIdentifier)
{
    ErrInfo errors;
    errors.newLine("evalfun_basic", 10);
    errors["message"] = "sqrt";
    errors["fun"] = "sqrt";
    errors.newLine("evalnodes", 20);
    errors["var"] = "a";

    const Exception e = errors.makeException();

    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e.getId(0), "sqrt");
    EXPECT_EQ(e.getFile(0), "evalfun_basic");
    EXPECT_EQ(e.getArgs(0), (qxbase::ExceptionArgs{{"fun", "sqrt"}}));
    EXPECT_EQ(e.getId(1), "Unexpected_NaN");
    EXPECT_EQ(e.getLine(1), 20);
}

TEST(ErrInfo, CopiesAreIndependentWhicheverOfThemGrows)
{
    ErrInfo first;
    first.newLine("f", 1);
    first["message"] = "one";
    ErrInfo second(first);

    second["message"] = "other";
    second.newLine("g", 2);
    first.newLine("h", 3);
    first["message"] = "three";

    EXPECT_EQ(first.size(), 2u);
    EXPECT_EQ(first.get(0, "message"), "one");
    EXPECT_EQ(first.get(1, "message"), "three");
    EXPECT_EQ(first.getFile(1), "h");
    EXPECT_EQ(second.get(0, "message"), "other");
    EXPECT_EQ(second.getFile(1), "g");
    EXPECT_THROW(second.get(2, "message"), std::out_of_range);
}

TEST(ErrInfo, OfAnyLengthIsCopiedAtOnceAndEndsOnASmallStack)
{
    qxtest::runOnStack(qxtest::smallestStack, [] {
        ErrInfo errors;
        for (int i = 0; i < 200000; ++i)
            errors.newLine("f", i);

        const long before = qxtest::allocationCount();
        ErrInfo copy(errors);
        EXPECT_EQ(qxtest::allocationCount(), before);

        copy.newLine("g", 0);
        EXPECT_EQ(copy.size(), 200001u);
        EXPECT_EQ(errors.size(), 200000u);
        EXPECT_EQ(copy.getFile(0), "f");
        EXPECT_EQ(copy.makeException().getLine(199999), 199999);
    });
}

TEST(ErrInfo, AppendOfItselfDoublesTheLines)
{
    ErrInfo errors;
    errors.newLine("a", 1);

    errors.append(errors);

    EXPECT_EQ(errors.size(), 2u);
}

TEST(Exception, AddTakesPairsOfTextAndInteger)
{
    Exception e("sparse", 1, "Internal_error_sparse");

    e.add("umfpack", 2, "Internal_error_in_UMFPACK", std::vector<std::pair<std::string, int>>{{"Error_code", -8}, {"Step", 2}});

    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e.getId(1), "Internal_error_in_UMFPACK");
    EXPECT_EQ(e.getArgs(1), (qxbase::ExceptionArgs{{"Error_code", "-8"}, {"Step", "2"}}));
}

TEST(Exception, IntegersOfEveryWidthAreKeptAsDecimalText)
{
    const auto kept = [](const Exception& e) { return e.getArgs(0).front().second; };

    EXPECT_EQ(kept(Exception("m", 1, "Id", "k", -7)), "-7");
    EXPECT_EQ(kept(Exception("m", 1, "Id", "k", -5000000000L)), "-5000000000");
    EXPECT_EQ(kept(Exception("m", 1, "Id", "k", 18446744073709551615UL)), "18446744073709551615");
    const Exception pairs("m", 1, "Id", std::vector<std::pair<std::string, int>>{{"a", 1}, {"b", -2}});
    EXPECT_EQ(pairs.getArgs(0), (qxbase::ExceptionArgs{{"a", "1"}, {"b", "-2"}}));
}

TEST(Exception, TextHasALineForEachEntryInnermostFirst)
{
    Exception e("inner", 7, "Divide_by_zero", qxbase::ExceptionArgs{{"Name", "x"}, {"Point", "3"}});
    e.add("middle", 12, "In_formula");
    e.add("outer", 13, "Stopped", qxbase::ExceptionArgs{{"key", ""}});

    EXPECT_EQ(e.toString(), "inner:7 Divide_by_zero (Name = x, Point = 3)\nmiddle:12 In_formula\nouter:13 Stopped (key)\n");
}

TEST(ErrInfo, AppendedToAnEmptyRecordIsTheOther)
{
    ErrInfo empty, other;
    other.newLine("file", 3);
    other["k"] = "v";

    empty.append(other);

    ASSERT_EQ(empty.size(), 1u);
    EXPECT_EQ(empty.get(0, "k"), "v");
}
