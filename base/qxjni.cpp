#include "qxjni.hpp"

#include "qxexception.hpp"

#include <atomic>
#include <limits>
#include <mutex>

#include <dlfcn.h>
#include <jni.h>
#include <link.h>

namespace qxbase {

namespace {

constexpr jint jniVersion = JNI_VERSION_1_8;

std::atomic<JavaVM*> givenVM{nullptr};

using GetCreatedVMs = jint (*)(JavaVM**, jsize, jsize*);

/// Looks the entry point up again only after libraries were loaded: a search that fails costs microseconds, and the
/// question is asked for every text that is read.
GetCreatedVMs findGetCreatedVMs()
{
    static std::mutex mutex;
    static GetCreatedVMs found = nullptr;
    static unsigned long long loadedAtLastSearch = 0;

    unsigned long long loaded = 0;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* count) {
            *static_cast<unsigned long long*>(count) = info->dlpi_adds;
            return 1;
        },
        &loaded);
    const std::lock_guard lock(mutex);
    if (!found && loaded != loadedAtLastSearch) {
        void* symbol = dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs");
        if (!symbol)
            if (void* library = dlopen("libjvm.so", RTLD_LAZY | RTLD_NOLOAD)) // loaded with local scope
                symbol = dlsym(library, "JNI_GetCreatedJavaVMs");
        found = reinterpret_cast<GetCreatedVMs>(symbol);
        loadedAtLastSearch = loaded;
    }
    return found;
}

[[noreturn]] void raiseAfterClearing(JNIEnv* env, int line)
{
    if (env->ExceptionCheck())
        env->ExceptionClear();
    throw Exception("qxjni", line, "JNI_exception");
}

constexpr char32_t replacement = 0xfffd;

bool isSurrogate(char32_t c) { return c >= 0xd800 && c <= 0xdfff; }
bool isScalar(char32_t c) { return c <= 0x10ffff && !isSurrogate(c); }

/// Code points of UTF-16.
template <class Sink>
void decodeUtf16(const std::u16string& text, Sink&& sink)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        if (!isSurrogate(unit)) {
            sink(unit);
        } else if (unit < 0xdc00 && i + 1 < text.size() && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff) {
            sink(0x10000 + ((unit - 0xd800) << 10) + (text[i + 1] - 0xdc00));
            ++i;
        } else {
            sink(replacement);
        }
    }
}

/// Code points of UTF-8; an ill-formed sequence gives one replacement for its first byte.
template <class Sink>
void decodeUtf8(const std::string& text, Sink&& sink)
{
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xc0 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf8 ? 4 : 0;
        char32_t c = length <= 1 ? lead : lead & (0x7fu >> length);
        bool good = length != 0 && i + length <= text.size();
        for (std::size_t k = 1; good && k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            good = (next & 0xc0) == 0x80;
            c = c << 6 | (next & 0x3f);
        }
        good = good && c >= smallest[length] && isScalar(c);
        sink(good ? c : replacement);
        i += good ? length : 1;
    }
}

void appendUtf8(std::string& out, char32_t c)
{
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | (c >> shift & 0x3f)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xc0 | c >> 6);
        tail(0);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xe0 | c >> 12);
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xf0 | c >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

void appendUtf16(std::u16string& out, char32_t c)
{
    if (c < 0x10000) {
        out += static_cast<char16_t>(c);
    } else {
        out += static_cast<char16_t>(0xd800 + ((c - 0x10000) >> 10));
        out += static_cast<char16_t>(0xdc00 + (c & 0x3ff));
    }
}

std::u16string unitsOf(JNIEnv* env, jstring text)
{
    static_assert(sizeof(jchar) == sizeof(char16_t));
    if (!text)
        raiseAfterClearing(env, __LINE__);
    const jsize length = env->GetStringLength(text);
    std::u16string units(static_cast<std::size_t>(length), u'\0');
    env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>(units.data()));
    if (env->ExceptionCheck())
        raiseAfterClearing(env, __LINE__);
    return units;
}

jstring newString(JNIEnv* env, const std::u16string& units)
{
    if (units.size() > static_cast<std::size_t>(std::numeric_limits<jsize>::max()))
        raiseAfterClearing(env, __LINE__);
    jstring text = env->NewString(reinterpret_cast<const jchar*>(units.data()), static_cast<jsize>(units.size()));
    if (!text)
        raiseAfterClearing(env, __LINE__);
    return text;
}

} // namespace

JavaVM* QxJCall::getVM()
{
    if (JavaVM* vm = givenVM.load(std::memory_order_acquire))
        return vm;
    JavaVM* vm = nullptr;
    jsize count = 0;
    if (const GetCreatedVMs getCreated = findGetCreatedVMs())
        if (getCreated(&vm, 1, &count) != JNI_OK || count < 1)
            vm = nullptr;
    return vm;
}

void QxJCall::setVM(JavaVM* vm) { givenVM.store(vm, std::memory_order_release); }

jclass findClass(JNIEnv* env, const char* name) { return env->FindClass(name); }

std::string jStr2CppStr(JNIEnv* env, jstring text)
{
    std::string out;
    decodeUtf16(unitsOf(env, text), [&](char32_t c) { appendUtf8(out, c); });
    return out;
}

std::wstring jStr2CppWStr(JNIEnv* env, jstring text)
{
    std::wstring out;
    decodeUtf16(unitsOf(env, text), [&](char32_t c) { out += static_cast<wchar_t>(c); });
    return out;
}

jstring toJavaNew(JNIEnv* env, const std::string& text)
{
    std::u16string units;
    units.reserve(text.size());
    decodeUtf8(text, [&](char32_t c) { appendUtf16(units, c); });
    return newString(env, units);
}

jstring toJavaNew(JNIEnv* env, const std::wstring& text)
{
    std::u16string units;
    units.reserve(text.size());
    for (const wchar_t c : text) {
        const auto point = static_cast<char32_t>(c);
        appendUtf16(units, isScalar(point) ? point : replacement);
    }
    return newString(env, units);
}

} // namespace qxbase

namespace qxutil {

namespace {

JNIEnv* environmentOf(JavaVM* vm)
{
    void* env = nullptr;
    return vm && vm->GetEnv(&env, qxbase::jniVersion) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

} // namespace

JNIEnv* VMData::getJNIEnv() { return environmentOf(qxbase::QxJCall::getVM()); }

AttachThread::AttachThread()
{
    JavaVM* vm = qxbase::QxJCall::getVM();
    if (!vm || environmentOf(vm))
        return;
    void* env = nullptr;
    if (vm->AttachCurrentThread(&env, nullptr) == JNI_OK)
        attachedTo_ = vm;
}

void AttachThread::clear()
{
    if (attachedTo_)
        attachedTo_->DetachCurrentThread();
    attachedTo_ = nullptr;
}

} // namespace qxutil

extern "C" {

QX_API jint JNI_OnLoad(JavaVM* vm, void*)
{
    qxbase::QxJCall::setVM(vm);
    return qxbase::jniVersion;
}

QX_API void JNI_OnUnload(JavaVM*, void*) { qxbase::QxJCall::setVM(nullptr); }
}
