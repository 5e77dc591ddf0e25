#include "symbolic_support.hpp"

#include "qxjni.hpp"
#include "symbolic/exprimpl_java_detail.hpp"

#include <cstring>
#include <jni.h>

using namespace qxtest;

// A table of C functions in place of a virtual machine: each failure can be staged, and the calls are counted.
namespace {

struct FakeJava
{
    bool classMissing = false, methodMissing = false, resultNull = false, textFails = false;
    bool pending = false;
    int methodLookups = 0, localRefs = 0, clears = 0;
    std::u16string result = u"+ a b";
    std::string method, signature;
    std::u16string sent;
    jboolean flags[2] = {0, 0};
};

FakeJava* fake = nullptr;

int classObject, textObject, resultObject, methodObject;

template <class T>
T handle(int& object)
{
    ++fake->localRefs;
    return reinterpret_cast<T>(&object);
}

jclass JNICALL findClass(JNIEnv*, const char* name)
{
    EXPECT_STREQ(name, "com/quorix/parser/expr/ExprParser");
    if (fake->classMissing) {
        fake->pending = true;
        return nullptr;
    }
    return handle<jclass>(classObject);
}
jmethodID JNICALL getStaticMethodID(JNIEnv*, jclass, const char* name, const char* signature)
{
    ++fake->methodLookups;
    fake->method = name;
    fake->signature = signature;
    if (fake->methodMissing) {
        fake->pending = true;
        return nullptr;
    }
    return reinterpret_cast<jmethodID>(&methodObject);
}
jstring JNICALL newString(JNIEnv*, const jchar* text, jsize n)
{
    if (fake->textFails) {
        fake->pending = true;
        return nullptr;
    }
    fake->sent.assign(reinterpret_cast<const char16_t*>(text), static_cast<std::size_t>(n));
    return handle<jstring>(textObject);
}
jobject JNICALL callStaticObjectMethodV(JNIEnv*, jclass, jmethodID, va_list arguments)
{
    (void)va_arg(arguments, jobject);
    fake->flags[0] = static_cast<jboolean>(va_arg(arguments, int));
    fake->flags[1] = static_cast<jboolean>(va_arg(arguments, int));
    if (fake->resultNull) {
        fake->pending = true;
        return nullptr;
    }
    return handle<jobject>(resultObject);
}
void JNICALL deleteLocalRef(JNIEnv*, jobject) { --fake->localRefs; }
void JNICALL exceptionClear(JNIEnv*)
{
    ++fake->clears;
    fake->pending = false;
}
jboolean JNICALL exceptionCheck(JNIEnv*) { return fake->pending ? JNI_TRUE : JNI_FALSE; }
jsize JNICALL getStringLength(JNIEnv*, jstring) { return static_cast<jsize>(fake->result.size()); }
void JNICALL getStringRegion(JNIEnv*, jstring, jsize from, jsize n, jchar* out)
{
    std::memcpy(out, fake->result.data() + from, static_cast<std::size_t>(n) * sizeof(jchar));
}

class FakeEnv : public testing::Test
{
protected:
    FakeEnv()
    {
        fake = &java;
        functions.FindClass = findClass;
        functions.GetStaticMethodID = getStaticMethodID;
        functions.NewString = newString;
        functions.CallStaticObjectMethodV = callStaticObjectMethodV;
        functions.DeleteLocalRef = deleteLocalRef;
        functions.ExceptionClear = exceptionClear;
        functions.ExceptionCheck = exceptionCheck;
        functions.GetStringLength = getStringLength;
        functions.GetStringRegion = getStringRegion;
        env.functions = &functions;
        qxsymbolic::forgetParserMethod();
    }
    ~FakeEnv() override
    {
        EXPECT_EQ(java.localRefs, 0) << "local references left over";
        qxsymbolic::forgetParserMethod();
    }

    FakeJava java;
    JNINativeInterface_ functions{};
    JNIEnv env{};
};

} // namespace

TEST_F(FakeEnv, CallsTheMethodWithTheTextAndTwoTrueFlags)
{
    EXPECT_EQ(qxsymbolic::parseByJava(&env, "a+b"), "+ a b");
    EXPECT_EQ(java.method, "parseExprToInfix");
    EXPECT_EQ(java.signature, "(Ljava/lang/String;ZZ)Ljava/lang/String;");
    EXPECT_EQ(java.sent, u"a+b");
    EXPECT_EQ(java.flags[0], JNI_TRUE);
    EXPECT_EQ(java.flags[1], JNI_TRUE);
}

TEST_F(FakeEnv, LooksTheMethodUpOnce)
{
    qxsymbolic::parseByJava(&env, "a");
    qxsymbolic::parseByJava(&env, "b");
    EXPECT_EQ(java.methodLookups, 1);
}

TEST_F(FakeEnv, MissingClassIsACallbackErrorWithThePendingExceptionCleared)
{
    java.classMissing = true;
    EXPECT_EQ(idOf([&] { qxsymbolic::parseByJava(&env, "a+b"); }), "Internal_error_callback");
    EXPECT_FALSE(java.pending);
}

TEST_F(FakeEnv, MissingMethodIsACallbackErrorWithThePendingExceptionCleared)
{
    java.methodMissing = true;
    EXPECT_EQ(idOf([&] { qxsymbolic::parseByJava(&env, "a+b"); }), "Internal_error_callback");
    EXPECT_FALSE(java.pending);
}

TEST_F(FakeEnv, TextThatCannotBeMadeIsAJniException)
{
    java.textFails = true;
    EXPECT_EQ(idOf([&] { qxsymbolic::parseByJava(&env, "a+b"); }), "JNI_exception");
    EXPECT_FALSE(java.pending);
}

TEST_F(FakeEnv, NullResultIsACallbackErrorWithThePendingExceptionCleared)
{
    java.resultNull = true;
    EXPECT_EQ(idOf([&] { qxsymbolic::parseByJava(&env, "a+b"); }), "Internal_error_callback");
    EXPECT_FALSE(java.pending);
}

TEST_F(FakeEnv, NoEnvironmentIsACallbackError)
{
    EXPECT_EQ(idOf([] { qxsymbolic::parseByJava(nullptr, "a+b"); }), "Internal_error_callback");
}
