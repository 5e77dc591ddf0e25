// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxjni.hpp"

#include "base/qxjni_detail.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <new>

#include <dlfcn.h>
#include <jni.h>
#include <link.h>

namespace qxbase {

namespace {

constexpr jint jniVersion = JNI_VERSION_1_8;

/// The machine handed over, or the one that was found.
std::atomic<JavaVM*> knownVM{nullptr};

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

/// The loader that classes are looked for with when FindClass does not know them.
class KnownLoader
{
public:
    /// Takes a global reference to loader; null forgets the one that was there. False if Java refuses.
    bool set(JNIEnv* env, jobject loader)
    {
        jmethodID load = nullptr;
        jobject kept = nullptr;
        if (loader) {
            const LocalRef<jclass> type(env, env->FindClass("java/lang/ClassLoader"));
            load = type ? env->GetMethodID(type.get(), "loadClass", "(Ljava/lang/String;)Ljava/lang/Class;") : nullptr;
            kept = load ? env->NewGlobalRef(loader) : nullptr;
            if (!kept)
                return false;
        }
        {
            const std::lock_guard lock(mutex_);
            std::swap(kept, loader_);
            load_ = load;
        }
        if (kept)
            env->DeleteGlobalRef(kept);
        return true;
    }

    /// The class by its name with dots; null, with the loader's exception pending, if there is none. Untouched, and
    /// false, without a loader.
    bool find(JNIEnv* env, const char* name, jclass& found)
    {
        jmethodID load = nullptr;
        const LocalRef<jobject> loader(env, [&] {
            const std::lock_guard lock(mutex_);
            load = load_;
            return loader_ ? env->NewLocalRef(loader_) : nullptr;
        }());
        if (!loader)
            return false;
        std::string dotted = name;
        std::replace(dotted.begin(), dotted.end(), '/', '.');
        const LocalRef<jstring> text(env, env->NewStringUTF(dotted.c_str()));
        found = text ? static_cast<jclass>(env->CallObjectMethod(loader.get(), load, text.get())) : nullptr;
        if (env->ExceptionCheck())
            found = nullptr;
        return true;
    }

    bool isSet()
    {
        const std::lock_guard lock(mutex_);
        return loader_ != nullptr;
    }

private:
    std::mutex mutex_;
    jobject loader_ = nullptr;
    jmethodID load_ = nullptr;
} knownLoader;

/// The context class loader of the calling Java thread as a local reference, or null.
jobject contextLoader(JNIEnv* env)
{
    const LocalRef<jclass> type(env, env->FindClass("java/lang/Thread"));
    if (!type)
        return nullptr;
    const jmethodID current = env->GetStaticMethodID(type.get(), "currentThread", "()Ljava/lang/Thread;");
    const jmethodID loader =
        current ? env->GetMethodID(type.get(), "getContextClassLoader", "()Ljava/lang/ClassLoader;") : nullptr;
    if (!loader)
        return nullptr;
    const LocalRef<jobject> thread(env, env->CallStaticObjectMethod(type.get(), current));
    if (env->ExceptionCheck() || !thread)
        return nullptr;
    jobject found = env->CallObjectMethod(thread.get(), loader);
    return env->ExceptionCheck() ? nullptr : found;
}

[[noreturn]] void raiseJni(JNIEnv* env, PendingException pending, int line)
{
    if (pending == PendingException::Clear && env->ExceptionCheck())
        env->ExceptionClear();
    throw Exception("qxjni", line, "JNI_exception");
}

/// Hardly any call is allowed while an exception is pending.
void requireNothingPending(JNIEnv* env, PendingException pending)
{
    if (env->ExceptionCheck())
        raiseJni(env, pending, __LINE__);
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

std::u16string unitsOf(JNIEnv* env, jstring text, PendingException pending)
{
    static_assert(sizeof(jchar) == sizeof(char16_t));
    requireNothingPending(env, pending);
    if (!text)
        raiseJni(env, pending, __LINE__);
    const jsize length = env->GetStringLength(text);
    std::u16string units(static_cast<std::size_t>(length), u'\0');
    env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>(units.data()));
    requireNothingPending(env, pending);
    return units;
}

jstring newString(JNIEnv* env, const std::u16string& units, PendingException pending)
{
    requireNothingPending(env, pending);
    if (units.size() > static_cast<std::size_t>(std::numeric_limits<jsize>::max()))
        raiseJni(env, pending, __LINE__);
    jstring text = env->NewString(reinterpret_cast<const jchar*>(units.data()), static_cast<jsize>(units.size()));
    if (!text)
        raiseJni(env, pending, __LINE__);
    return text;
}

} // namespace

JavaVM* QxJCall::getVM()
{
    if (JavaVM* vm = knownVM.load(std::memory_order_acquire))
        return vm;
    JavaVM* vm = nullptr;
    jsize count = 0;
    const GetCreatedVMs getCreated = findGetCreatedVMs();
    if (!getCreated || getCreated(&vm, 1, &count) != JNI_OK || count < 1)
        return nullptr;
    JavaVM* none = nullptr;
    knownVM.compare_exchange_strong(none, vm); // a machine handed over meanwhile goes first
    return none ? none : vm;
}

void QxJCall::setVM(JavaVM* vm) { knownVM.store(vm, std::memory_order_release); }

void QxJCall::setClassLoader(JNIEnv* env, jobject loader)
{
    if (env->ExceptionCheck() || !knownLoader.set(env, loader))
        QX_RAISE("qxjni", "JNI_exception");
}

jclass findClass(JNIEnv* env, const char* name)
{
    jclass found = env->FindClass(name);
    if (found || !knownLoader.isSet())
        return found;
    const LocalRef<jthrowable> first(env, env->ExceptionOccurred());
    env->ExceptionClear();
    if (!knownLoader.find(env, name, found) && first)
        env->Throw(first.get()); // the loader was taken away meanwhile
    return found;
}

StaticMethod::Found StaticMethod::find(JNIEnv* env)
{
    Found found{{env, findClass(env, className_)}, nullptr};
    if (!found.type)
        return found;
    Kept* kept = kept_.load(std::memory_order_acquire);
    if (kept && env->IsSameObject(kept->type, found.type.get())) {
        found.id = kept->id;
        return found;
    }
    found.id = env->GetStaticMethodID(found.type.get(), name_, signature_);
    if (found.id && !kept)
        if (auto* made = new (std::nothrow) Kept{env->NewGlobalRef(found.type.get()), found.id})
            if (!made->type || !kept_.compare_exchange_strong(kept, made)) {
                if (made->type)
                    env->DeleteGlobalRef(made->type);
                delete made;
            }
    return found;
}

std::string jStr2CppStr(JNIEnv* env, jstring text, PendingException pending)
{
    std::string out;
    decodeUtf16(unitsOf(env, text, pending), [&](char32_t c) { appendUtf8(out, c); });
    return out;
}

std::wstring jStr2CppWStr(JNIEnv* env, jstring text, PendingException pending)
{
    std::wstring out;
    decodeUtf16(unitsOf(env, text, pending), [&](char32_t c) { out += static_cast<wchar_t>(c); });
    return out;
}

jstring toJavaNew(JNIEnv* env, const std::string& text, PendingException pending)
{
    std::u16string units;
    units.reserve(text.size());
    decodeUtf8(text, [&](char32_t c) { appendUtf16(units, c); });
    return newString(env, units, pending);
}

jstring toJavaNew(JNIEnv* env, const std::wstring& text, PendingException pending)
{
    std::u16string units;
    units.reserve(text.size());
    for (const wchar_t c : text) {
        const auto point = static_cast<char32_t>(c);
        appendUtf16(units, isScalar(point) ? point : replacement);
    }
    return newString(env, units, pending);
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
    if (vm->AttachCurrentThreadAsDaemon(&env, nullptr) == JNI_OK)
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
    if (JNIEnv* env = qxutil::environmentOf(vm)) {
        const qxbase::LocalRef<jobject> loader(env, qxbase::contextLoader(env));
        if (!loader || !qxbase::knownLoader.set(env, loader.get()))
            env->ExceptionClear(); // classes are then found as far as FindClass finds them
    }
    return qxbase::jniVersion;
}

QX_API void JNI_OnUnload(JavaVM* vm, void*)
{
    if (JNIEnv* env = qxutil::environmentOf(vm))
        qxbase::knownLoader.set(env, nullptr);
    qxbase::QxJCall::setVM(nullptr);
}
}
