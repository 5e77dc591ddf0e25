// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/fake_java.hpp"

#include <algorithm>
#include <new>

namespace qxtest {

FakeJava::FakeJava()
{
    addArrays();
    addStrings();
    table.ExceptionCheck = [](JNIEnv* env) -> jboolean {
        self(env).allowed("ExceptionCheck");
        return self(env).pending;
    };
    table.DeleteLocalRef = [](JNIEnv* env, jobject object) {
        self(env).allowed("DeleteLocalRef");
        if (object && --self(env).liveRefs < 0)
            self(env).breaches.push_back("DeleteLocalRef of what is no local reference");
    };
    table.EnsureLocalCapacity = [](JNIEnv* env, jint) -> jint {
        return self(env).fails("EnsureLocalCapacity") ? JNI_ENOMEM : JNI_OK;
    };
    table.FindClass = [](JNIEnv* env, const char* name) -> jclass {
        return self(env).fails("FindClass") ? nullptr : static_cast<jclass>(self(env).local(self(env).classNamed(name)));
    };
    table.IsInstanceOf = [](JNIEnv* env, jobject object, jclass type) -> jboolean {
        self(env).cannotFail("IsInstanceOf");
        return !object || "class " + self(env).at(object).type == self(env).at(type).type;
    };
}

void FakeJava::allowed(const char* name) noexcept
{
    try {
        calls.push_back(name);
    } catch (const std::bad_alloc&) { // a test that lets allocations fail
    }
}

void FakeJava::cannotFail(const char* name)
{
    calls.push_back(name);
    if (pending)
        breaches.push_back(std::string(name) + " while an exception is pending");
}

bool FakeJava::fails(const char* name)
{
    cannotFail(name);
    if (untilFailure_ == 0 || --untilFailure_ != 0)
        return false;
    failed_ = pending = true;
    return true;
}

jobject FakeJava::local(jobject object)
{
    if (object)
        peakRefs = std::max(peakRefs, ++liveRefs);
    return object;
}

jobject FakeJava::make(const std::string& type, Value value)
{
    auto object = std::make_unique<Object>();
    object->type = type;
    object->value = std::move(value);
    jobject handle = object.get();
    objects_[handle] = std::move(object);
    return handle;
}

jclass FakeJava::classNamed(const std::string& name)
{
    jobject& known = classes_[name];
    if (!known)
        known = make("class " + name, Objects());
    return static_cast<jclass>(known);
}

jobjectArray FakeJava::objects(const std::string& type, const Objects& elements)
{
    return static_cast<jobjectArray>(make(type, elements));
}

jobjectArray FakeJava::matrix(const std::vector<std::vector<double>>& rows)
{
    Objects elements;
    for (const auto& row : rows)
        elements.push_back(doubles(row));
    return objects("[[D", elements);
}

std::vector<std::vector<double>> FakeJava::rowsOf(jobject array) const
{
    std::vector<std::vector<double>> rows;
    for (jobject row : valuesOf<jobject>(array))
        rows.push_back(row ? valuesOf<double>(row) : std::vector<double>());
    return rows;
}

std::string FakeJava::textOf(jobject text) const
{
    std::string bytes;
    for (char16_t c : std::get<std::u16string>(at(text).value)) {
        if (c >= 0x80)
            bytes += static_cast<char>(0xc0 | c >> 6);
        bytes += static_cast<char>(c < 0x80 ? c : 0x80 | (c & 0x3f));
    }
    return bytes;
}

void FakeJava::addArrays()
{
    table.GetArrayLength = [](JNIEnv* env, jarray array) {
        self(env).cannotFail("GetArrayLength");
        const auto claimed = self(env).claimed_.find(array);
        if (claimed != self(env).claimed_.end())
            return claimed->second;
        return std::visit([](const auto& v) { return static_cast<jsize>(v.size()); }, self(env).at(array).value);
    };
    table.NewObjectArray = [](JNIEnv* env, jsize n, jclass type, jobject) -> jobjectArray {
        if (self(env).fails("NewObjectArray"))
            return nullptr;
        std::string name = self(env).at(type).type.substr(6); // behind "class "
        if (name.front() != '[')
            name = "L" + name + ";";
        return static_cast<jobjectArray>(self(env).local(self(env).make("[" + name, Objects(static_cast<std::size_t>(n)))));
    };
    table.GetObjectArrayElement = [](JNIEnv* env, jobjectArray array, jsize i) -> jobject {
        if (self(env).fails("GetObjectArrayElement"))
            return nullptr;
        return self(env).local(self(env).valuesOf<jobject>(array).at(static_cast<std::size_t>(i)));
    };
    table.SetObjectArrayElement = [](JNIEnv* env, jobjectArray array, jsize i, jobject value) {
        if (!self(env).fails("SetObjectArrayElement"))
            std::get<Objects>(self(env).at(array).value).at(static_cast<std::size_t>(i)) = value;
    };
    // Arrays of double only.
    table.GetPrimitiveArrayCritical = [](JNIEnv* env, jarray array, jboolean*) -> void* {
        if (self(env).fails("GetPrimitiveArrayCritical"))
            return nullptr;
        ++self(env).pinned;
        return std::get<std::vector<jdouble>>(self(env).at(array).value).data();
    };
    table.ReleasePrimitiveArrayCritical = [](JNIEnv* env, jarray, void*, jint) {
        self(env).allowed("ReleasePrimitiveArrayCritical");
        --self(env).pinned;
    };

#define QX_FAKE_NUMBERS(J, Name)                                                                                  \
    table.New##Name##Array = [](JNIEnv* env, jsize n) -> J##Array {                                               \
        if (self(env).fails("New" #Name "Array"))                                                                 \
            return nullptr;                                                                                       \
        return static_cast<J##Array>(self(env).local(self(env).numbers<J##Array>(std::vector<J>(std::size_t(n))))); \
    };                                                                                                            \
    table.Get##Name##ArrayRegion = [](JNIEnv* env, J##Array array, jsize from, jsize n, J* to) {                  \
        if (!self(env).fails("Get" #Name "ArrayRegion"))                                                          \
            std::copy_n(self(env).valuesOf<J>(array).begin() + from, n, to);                                      \
    };                                                                                                            \
    table.Set##Name##ArrayRegion = [](JNIEnv* env, J##Array array, jsize from, jsize n, const J* values) {        \
        if (!self(env).fails("Set" #Name "ArrayRegion"))                                                          \
            std::copy_n(values, n, std::get<std::vector<J>>(self(env).at(array).value).begin() + from);           \
    };                                                                                                            \
    table.Get##Name##ArrayElements = [](JNIEnv* env, J##Array array, jboolean* isCopy) -> J* {                    \
        if (self(env).fails("Get" #Name "ArrayElements"))                                                         \
            return nullptr;                                                                                       \
        const auto& values = self(env).valuesOf<J>(array);                                                        \
        J* copy = new J[values.size() + 1];                                                                       \
        std::copy(values.begin(), values.end(), copy);                                                            \
        *isCopy = JNI_TRUE;                                                                                       \
        ++self(env).pinned;                                                                                       \
        return copy;                                                                                              \
    };                                                                                                            \
    table.Release##Name##ArrayElements = [](JNIEnv* env, J##Array array, J* elements, jint mode) {                \
        self(env).allowed("Release" #Name "ArrayElements");                                                       \
        auto& values = std::get<std::vector<J>>(self(env).at(array).value);                                       \
        if (mode == 0)                                                                                            \
            std::copy_n(elements, values.size(), values.begin());                                                 \
        else                                                                                                      \
            ++self(env).aborted;                                                                                  \
        --self(env).pinned;                                                                                       \
        delete[] elements;                                                                                        \
    };
    QX_FAKE_NUMBERS(jbyte, Byte)
    QX_FAKE_NUMBERS(jshort, Short)
    QX_FAKE_NUMBERS(jint, Int)
    QX_FAKE_NUMBERS(jlong, Long)
    QX_FAKE_NUMBERS(jfloat, Float)
    QX_FAKE_NUMBERS(jdouble, Double)
#undef QX_FAKE_NUMBERS
}

void FakeJava::addStrings()
{
    table.GetStringLength = [](JNIEnv* env, jstring text) {
        self(env).cannotFail("GetStringLength");
        return static_cast<jsize>(std::get<std::u16string>(self(env).at(text).value).size());
    };
    table.GetStringRegion = [](JNIEnv* env, jstring text, jsize from, jsize n, jchar* to) {
        if (!self(env).fails("GetStringRegion"))
            std::copy_n(std::get<std::u16string>(self(env).at(text).value).begin() + from, n, to);
    };
    table.NewString = [](JNIEnv* env, const jchar* units, jsize n) -> jstring {
        if (self(env).fails("NewString"))
            return nullptr;
        return static_cast<jstring>(self(env).local(self(env).text(std::u16string(units, units + n))));
    };
    table.NewStringUTF = [](JNIEnv* env, const char* bytes) -> jstring {
        if (self(env).fails("NewStringUTF"))
            return nullptr;
        return static_cast<jstring>(self(env).local(self(env).text(std::u16string(bytes, bytes + std::char_traits<char>::length(bytes)))));
    };
}

} // namespace qxtest
