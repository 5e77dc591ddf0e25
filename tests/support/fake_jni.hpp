// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <jni.h>

#include <string>
#include <vector>

namespace qxtest {

/// A JNI environment that is a table of C functions with Java strings of its own: for failures that a real virtual
/// machine does not produce on request. Each call is noted by name in calls. Tests replace entries of table.
class FakeJni
{
public:
    FakeJni();

    JNIEnv* env() { return &env_; }
    /// A Java string with these UTF-16 units.
    jstring string(const std::u16string& units);
    const std::u16string& unitsOf(jstring text) const;

    JNINativeInterface_ table{};
    std::vector<std::string> calls;
    bool pending = false; ///< a Java exception is pending

    /// The object behind the environment of the call in progress: for functions put into table.
    static FakeJni& of(JNIEnv* env);

private:
    struct Text : _jstring
    {
        std::u16string units;
    };
    struct Env : JNIEnv_
    {
        FakeJni* owner;
    };

    Env env_;
    std::vector<Text*> texts_;

public:
    ~FakeJni();
};

} // namespace qxtest
