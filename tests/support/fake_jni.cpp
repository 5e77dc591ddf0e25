// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/fake_jni.hpp"

#include <algorithm>

namespace qxtest {

FakeJni& FakeJni::of(JNIEnv* env) { return *static_cast<Env*>(env)->owner; }

FakeJni::FakeJni()
{
    env_.functions = &table;
    env_.owner = this;
    table.GetStringLength = [](JNIEnv* env, jstring text) {
        of(env).calls.push_back("GetStringLength");
        return static_cast<jsize>(of(env).unitsOf(text).size());
    };
    table.GetStringRegion = [](JNIEnv* env, jstring text, jsize from, jsize count, jchar* to) {
        of(env).calls.push_back("GetStringRegion");
        const auto& units = of(env).unitsOf(text);
        std::copy_n(units.begin() + from, count, reinterpret_cast<char16_t*>(to));
    };
    table.NewString = [](JNIEnv* env, const jchar* units, jsize count) {
        of(env).calls.push_back("NewString");
        return of(env).string(std::u16string(units, units + count));
    };
    table.NewGlobalRef = [](JNIEnv*, jobject object) { return object; };
    table.DeleteGlobalRef = [](JNIEnv*, jobject) {};
    table.IsSameObject = [](JNIEnv*, jobject a, jobject b) -> jboolean { return a == b; };
    table.ExceptionCheck = [](JNIEnv* env) -> jboolean {
        of(env).calls.push_back("ExceptionCheck");
        return of(env).pending;
    };
    table.ExceptionClear = [](JNIEnv* env) {
        of(env).calls.push_back("ExceptionClear");
        of(env).pending = false;
    };
}

FakeJni::~FakeJni()
{
    for (Text* text : texts_)
        delete text;
}

jstring FakeJni::string(const std::u16string& units)
{
    texts_.push_back(new Text);
    texts_.back()->units = units;
    return texts_.back();
}

const std::u16string& FakeJni::unitsOf(jstring text) const { return static_cast<const Text*>(text)->units; }

} // namespace qxtest
