#include "errinfo.hpp"
#include "qxexception.hpp"

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

TEST(ErrInfo, AppendOfItselfDoublesTheLines)
{
    ErrInfo errors;
    errors.newLine("a", 1);

    errors.append(errors);

    EXPECT_EQ(errors.size(), 2u);
}
