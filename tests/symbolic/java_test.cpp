// SPDX-License-Identifier: LicenseRef-qxkernel
// The platform's parser class behind an environment that stages each failure.
#include "symbolic_support.hpp"

#include "support/fake_jni.hpp"
#include "symbolic/exprimpl_java_detail.hpp"

using namespace qxtest;

namespace {

/// A Java side with the parser class, and what it was asked.
class ParserJni : public FakeJni
{
public:
    ParserJni()
    {
        table.FindClass = [](JNIEnv* env, const char* name) -> jclass {
            EXPECT_STREQ(name, "com/quorix/parser/expr/ExprParser");
            return self(env).answer<jclass>(self(env).classThere, self(env).classObject);
        };
        table.GetStaticMethodID = [](JNIEnv* env, jclass, const char* name, const char* signature) {
            ++self(env).methodLookups;
            self(env).method = std::string(name) + signature;
            if (!self(env).methodThere)
                self(env).pending = true;
            return self(env).methodThere ? reinterpret_cast<jmethodID>(&self(env).method) : nullptr;
        };
        table.NewString = [](JNIEnv* env, const jchar* units, jsize n) -> jstring {
            if (!self(env).answer<jobject>(self(env).stringsWork, self(env).classObject))
                return nullptr;
            self(env).sent.assign(reinterpret_cast<const char16_t*>(units), static_cast<std::size_t>(n));
            return self(env).string(self(env).sent);
        };
        table.CallStaticObjectMethodV = [](JNIEnv* env, jclass, jmethodID, va_list arguments) -> jobject {
            (void)va_arg(arguments, jobject);
            for (int& flag : self(env).flags)
                flag = va_arg(arguments, int);
            if (!self(env).answer<jobject>(self(env).resultThere, self(env).classObject))
                return nullptr;
            return self(env).string(u"+ a b");
        };
        table.DeleteLocalRef = [](JNIEnv* env, jobject) { --self(env).localRefs; };
        qxsymbolic::forgetParserMethod(); // it belongs to one environment
    }
    ~ParserJni() { qxsymbolic::forgetParserMethod(); }

    std::string parse() { return qxsymbolic::parseByJava(env(), "a+b"); }

    bool classThere = true, methodThere = true, stringsWork = true, resultThere = true;
    int methodLookups = 0, localRefs = 0;
    int flags[2] = {0, 0};
    std::string method;
    std::u16string sent;

private:
    static ParserJni& self(JNIEnv* env) { return static_cast<ParserJni&>(of(env)); }

    /// A local reference, or null with a Java exception pending.
    template <class T>
    T answer(bool works, _jclass& object)
    {
        if (!works) {
            pending = true;
            return nullptr;
        }
        ++localRefs;
        return static_cast<T>(&object);
    }

    _jclass classObject;
};

} // namespace

TEST(JavaParser, IsCalledWithTheTextAndTwoTrueFlags)
{
    ParserJni java;
    EXPECT_EQ(java.parse(), "+ a b");
    EXPECT_EQ(java.method, "parseExprToInfix(Ljava/lang/String;ZZ)Ljava/lang/String;");
    EXPECT_EQ(java.sent, u"a+b");
    EXPECT_EQ(java.flags[0], JNI_TRUE);
    EXPECT_EQ(java.flags[1], JNI_TRUE);
    EXPECT_EQ(java.localRefs, 0) << "class, text and result are given back";
}

TEST(JavaParser, LooksTheMethodUpOnce)
{
    ParserJni java;
    java.parse();
    java.parse();
    EXPECT_EQ(java.methodLookups, 1);
}

struct StagedFailure
{
    const char* name;
    bool ParserJni::*works;
    const char* id;
};

class JavaParserFailure : public testing::TestWithParam<StagedFailure>
{
};

TEST_P(JavaParserFailure, ClearsThePendingExceptionAndRaises)
{
    ParserJni java;
    java.*(GetParam().works) = false;
    EXPECT_EQ(idOf([&] { java.parse(); }), GetParam().id);
    EXPECT_FALSE(java.pending);
    EXPECT_EQ(java.localRefs, 0);
}

INSTANTIATE_TEST_SUITE_P(Stages, JavaParserFailure,
                         testing::Values(StagedFailure{"Class", &ParserJni::classThere, "Internal_error_callback"},
                                         StagedFailure{"Method", &ParserJni::methodThere, "Internal_error_callback"},
                                         StagedFailure{"Text", &ParserJni::stringsWork, "JNI_exception"},
                                         StagedFailure{"Result", &ParserJni::resultThere, "Internal_error_callback"}),
                         [](const testing::TestParamInfo<StagedFailure>& test) { return test.param.name; });

TEST(JavaParser, WithoutAnEnvironmentRaisesACallbackError)
{
    EXPECT_EQ(idOf([] { qxsymbolic::parseByJava(nullptr, "a+b"); }), "Internal_error_callback");
    EXPECT_EQ(idOf([] { qxInfixToPrefixByJava("a+b"); }), "Internal_error_callback"); // no machine in this process
}
