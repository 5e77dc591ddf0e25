// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "support/fake_jni.hpp"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace qxtest {

/// A JNI environment with arrays and strings that counts references and pinned arrays, and lets any call fail: for what a
/// real virtual machine does not show. Breaches of the rules of JNI are noted in `breaches`.
class FakeJava : public FakeJni
{
public:
    using Objects = std::vector<jobject>;

    FakeJava();

    // Arrays as a Java program has them: their references are not counted.
    template <class A, class J>
    A numbers(const std::vector<J>& values) { return static_cast<A>(make(typeOf(J()), values)); }
    jdoubleArray doubles(const std::vector<double>& values) { return numbers<jdoubleArray>(values); }
    jobject text(const std::u16string& units) { return make("Ljava/lang/String;", units); }
    jobjectArray objects(const std::string& type, const Objects& elements);
    jobjectArray matrix(const std::vector<std::vector<double>>& rows);

    template <class J>
    const std::vector<J>& valuesOf(jobject array) const { return std::get<std::vector<J>>(at(array).value); }
    std::vector<std::vector<double>> rowsOf(jobject array) const;
    /// The text as UTF-8; characters beyond U+07FF are not needed.
    std::string textOf(jobject text) const;
    void setNumbers(jobject array, const std::vector<double>& values) { at(array).value = values; }
    /// GetArrayLength answers this instead of the truth.
    void claimLength(jobject array, jsize length) { claimed_[array] = length; }

    /// The n-th call from now on that can fail fails: it gives null or an error and an exception is pending.
    void failCall(int n) { untilFailure_ = n; }
    bool failed() const { return failed_; }

    int liveRefs = 0;     ///< local references given out and not deleted
    int peakRefs = 0;
    int pinned = 0;       ///< element blocks not released
    int aborted = 0;      ///< released without copying back
    std::vector<std::string> breaches;

    static FakeJava& self(JNIEnv* env) { return static_cast<FakeJava&>(of(env)); }

    // For functions that tests put into the table.
    /// Notes the call; true if it is to fail now.
    bool fails(const char* name);
    /// Notes a call that never fails but needs that nothing is pending.
    void cannotFail(const char* name);
    /// Notes a call that may be made whatever is pending, also from a destructor.
    void allowed(const char* name) noexcept;
    jobject local(jobject object);
    jclass classNamed(const std::string& name);

private:
    using Value = std::variant<std::vector<jbyte>, std::vector<jshort>, std::vector<jint>, std::vector<jlong>,
                               std::vector<jfloat>, std::vector<jdouble>, Objects, std::u16string>;
    struct Object : _jobject
    {
        std::string type;
        Value value;
    };

    static const char* typeOf(jbyte) { return "[B"; }
    static const char* typeOf(jshort) { return "[S"; }
    static const char* typeOf(jint) { return "[I"; }
    static const char* typeOf(jlong) { return "[J"; }
    static const char* typeOf(jfloat) { return "[F"; }
    static const char* typeOf(jdouble) { return "[D"; }
    jobject make(const std::string& type, Value value);
    const Object& at(jobject object) const { return *objects_.at(object); }
    Object& at(jobject object) { return *objects_.at(object); }
    void addArrays();
    void addStrings();

    std::map<jobject, std::unique_ptr<Object>> objects_;
    std::map<jobject, jsize> claimed_;
    std::map<std::string, jobject> classes_;
    int untilFailure_ = 0;
    bool failed_ = false;
};

} // namespace qxtest
