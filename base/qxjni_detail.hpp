// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <atomic>
#include <jni.h>
#include <utility>

namespace qxbase {

/// A local reference that ends with the scope. Deleting one is allowed while a Java exception is pending.
template <class T>
class LocalRef
{
public:
    LocalRef(JNIEnv* env, T object) : env_(env), object_(object) {}
    ~LocalRef() { clear(); }
    LocalRef(LocalRef&& other) noexcept : env_(other.env_), object_(other.release()) {}
    LocalRef& operator=(LocalRef&&) = delete;

    T get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// Deletes the reference now.
    void clear()
    {
        if (object_)
            env_->DeleteLocalRef(object_);
        object_ = nullptr;
    }
    void swap(LocalRef& other) noexcept { std::swap(object_, other.object_); }
    void swap(LocalRef&& other) noexcept { swap(other); }
    /// The reference becomes the caller's.
    T release()
    {
        T object = object_;
        object_ = nullptr;
        return object;
    }

private:
    JNIEnv* env_;
    T object_;
};

/// A static method of a class that is found by name at every call; its identifier is looked up once.
///
/// A method identifier is valid while its class is loaded, so a global reference to the class goes with it. Another class
/// of the same name (another class loader) is noticed: its identifier is looked up at every call. Threads: any; those that
/// race look the same identifier up.
class StaticMethod
{
public:
    /// Names and signature as JNI takes them; lent for good.
    constexpr StaticMethod(const char* className, const char* name, const char* signature)
        : className_(className), name_(name), signature_(signature)
    {
    }

    struct Found
    {
        LocalRef<jclass> type;
        jmethodID id; ///< null: class or method is missing, the Java exception is pending
    };
    Found find(JNIEnv* env);
    /// Drops what is kept: it belongs to one virtual machine, and tests have several.
    void forget() { delete kept_.exchange(nullptr); }

private:
    struct Kept
    {
        jobject type;
        jmethodID id;
    };
    const char *className_, *name_, *signature_;
    std::atomic<Kept*> kept_{nullptr};
};

} // namespace qxbase
