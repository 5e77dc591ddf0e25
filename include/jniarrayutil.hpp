// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <string>
#include <type_traits>
#include <vector>

// The types of jni.h by name only, so that this header needs no Java headers; include jni.h to use them.
struct JNIEnv_;
class _jobject;
class _jarray;
class _jobjectArray;
class _jbyteArray;
class _jshortArray;
class _jintArray;
class _jlongArray;
class _jfloatArray;
class _jdoubleArray;

namespace qxarray {

/// How an array of N dimensions with elements T looks in Java. For T a number type `type` is the Java array of one
/// dimension; classSignature is the element class of the outermost dimension: "[D" for double[][].
///
/// T is signed char, unsigned short (Java's short: the bit pattern stays), int, long long, float, double, std::string or
/// std::wstring (java.lang.String).
template <class T, int N = 1>
struct JavaArrayType;

#define QX_JAVA_ARRAY_TYPE(T, Java, letter)                \
    template <>                                            \
    struct JavaArrayType<T, 1>                             \
    {                                                      \
        using type = Java;                                 \
        static constexpr const char* classSignature = letter; \
    };                                                     \
    template <>                                            \
    struct JavaArrayType<T, 2>                             \
    {                                                      \
        using type = _jobjectArray;                        \
        static constexpr const char* classSignature = "[" letter; \
    };                                                     \
    template <>                                            \
    struct JavaArrayType<T, 3>                             \
    {                                                      \
        using type = _jobjectArray;                        \
        static constexpr const char* classSignature = "[[" letter; \
    };
QX_JAVA_ARRAY_TYPE(signed char, _jbyteArray, "B")
QX_JAVA_ARRAY_TYPE(unsigned short, _jshortArray, "S")
QX_JAVA_ARRAY_TYPE(int, _jintArray, "I")
QX_JAVA_ARRAY_TYPE(long long, _jlongArray, "J")
QX_JAVA_ARRAY_TYPE(float, _jfloatArray, "F")
QX_JAVA_ARRAY_TYPE(double, _jdoubleArray, "D")
QX_JAVA_ARRAY_TYPE(std::string, _jobjectArray, "Ljava/lang/String;")
QX_JAVA_ARRAY_TYPE(std::wstring, _jobjectArray, "Ljava/lang/String;")
#undef QX_JAVA_ARRAY_TYPE

/// The elements of a Java array of numbers, pinned (HotSpot: copied) for a scope and copied back at its end.
///
/// The array's reference is lent for the handle's life, unless the handle comes from one of the converters that make
/// vectors of handles: then it is the handle's own. To be used and destroyed on the thread of env. The destructor may run
/// while a Java exception is pending.
template <class T>
class QX_API JavaArrayRH
{
public:
    using JavaArray = typename JavaArrayType<T>::type;

    /// tag is stored for the caller and never looked at. isCopy is overwritten by what Java says.
    /// Raises "JNI_exception" (jniarrayutil) for a null array, a pending Java exception, which stays pending, and when
    /// Java has no memory; the reference is the caller's then, whatever ownsReference says.
    JavaArrayRH(JNIEnv_* env, JavaArray* array, unsigned char isCopy, long long tag, bool ownsReference = false);
    ~JavaArrayRH();
    JavaArrayRH(const JavaArrayRH&) = delete;
    JavaArrayRH& operator=(const JavaArrayRH&) = delete;

    /// The elements; null after discard.
    T* get() const { return elements_; }
    /// Releases the elements now without copying them back: for arrays that were only read.
    void discard();

    JavaArray* array() const { return array_; }
    /// Java made a copy of the elements.
    bool isCopy() const { return isCopy_ != 0; }
    long long tag() const { return tag_; }

private:
    void release(int mode);

    JNIEnv_* env_;
    JavaArray* array_;
    unsigned char isCopy_;
    long long tag_;
    T* elements_ = nullptr;
    bool ownsReference_;
};

/// The same, giving the elements and their number to the caller's variables, which hold for the handle's life.
template <class T>
class QX_API JavaArray1RH : public JavaArrayRH<T>
{
public:
    JavaArray1RH(JNIEnv_* env, typename JavaArrayRH<T>::JavaArray* array, unsigned char isCopy, long long tag, T*& elements,
                 int& length);
};

using jdoubleArrayRH = JavaArrayRH<double>;
using jfloatArrayRH = JavaArrayRH<float>;
using jintArrayRH = JavaArrayRH<int>;
using jdoubleArray1RH = JavaArray1RH<double>;
using jintArray1RH = JavaArray1RH<int>;

extern template class JavaArrayRH<double>;
extern template class JavaArrayRH<float>;
extern template class JavaArrayRH<int>;
extern template class JavaArray1RH<double>;
extern template class JavaArray1RH<int>;

/// Nested vectors of depth N.
template <class T, int N>
struct NestedVector
{
    using type = std::vector<typename NestedVector<T, N - 1>::type>;
};
template <class T>
struct NestedVector<T, 1>
{
    using type = std::vector<T>;
};

/// Reads a Java array of N dimensions, rows of any lengths, into nested vectors: what toCpp does for them.
template <class T, int N>
struct QX_API JavaArrayGetter
{
    static void get(JNIEnv_* env, typename JavaArrayType<T, N>::type* array, typename NestedVector<T, N>::type& target);
};

} // namespace qxarray
