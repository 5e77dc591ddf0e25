// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxjarray.hpp"

#include "jbridge/qxjarray_detail.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstring>

namespace qxarray {

namespace {

[[noreturn]] void raiseJni(int line) { throw qxbase::Exception("qxjarray", line, "JNI_exception"); }

/// To be asked after every call that can leave a Java exception pending, and first of all: hardly any JNI call is allowed
/// while there is one.
void checkJava(JNIEnv* env)
{
    if (env->ExceptionCheck())
        raiseJni(__LINE__);
}

/// Work on behalf of a converter.
template <class Work>
auto convert(JNIEnv* env, Work&& work)
{
    checkJava(env);
    return raisingOutOfMemory(work);
}

jsize lengthOf(JNIEnv* env, jarray array)
{
    if (!array)
        raiseJni(__LINE__);
    return env->GetArrayLength(array);
}

/// FindClass takes the name of a class that is no array without L and ;
LocalRef<jclass> findElementClass(JNIEnv* env, const char* signature)
{
    std::string name = signature;
    if (name.front() == 'L')
        name = name.substr(1, name.size() - 2);
    LocalRef<jclass> found(env, env->FindClass(name.c_str()));
    if (!found)
        raiseJni(__LINE__);
    return found;
}

/// An array of objects says nothing of their type, and taking one type for another would end the process.
template <class T, int N>
void requireType(JNIEnv* env, jobjectArray array)
{
    if (!array)
        raiseJni(__LINE__);
    std::string name = "[";
    name += JavaArrayType<T, N>::classSignature;
    const LocalRef<jclass> wanted(env, env->FindClass(name.c_str()));
    if (!wanted)
        raiseJni(__LINE__);
    if (!env->IsInstanceOf(array, wanted.get()))
        QX_RAISE("qxjarray", "Internal_error_array_processing");
}

/// Element i, which may be null.
template <class J>
LocalRef<J> elementOf(JNIEnv* env, jobjectArray array, jsize i)
{
    LocalRef<J> element(env, static_cast<J>(env->GetObjectArrayElement(array, i)));
    checkJava(env);
    return element;
}

/// Element i, which may not be null.
template <class J>
LocalRef<J> requireElement(JNIEnv* env, jobjectArray array, jsize i)
{
    LocalRef<J> element = elementOf<J>(env, array, i);
    if (!element)
        raiseJni(__LINE__);
    return element;
}

void setElement(JNIEnv* env, jobjectArray array, jsize i, jobject value)
{
    env->SetObjectArrayElement(array, i, value);
    checkJava(env);
}

template <class T>
void readNumbers(JNIEnv* env, typename JavaNumbers<T>::Java array, jsize from, jsize n, T* to)
{
    if (n == 0)
        return;
    JavaNumbers<T>::get(env, array, from, n, to);
    checkJava(env);
}

/// From this many bytes on a copy that bypasses the caches pays. The garbage collector waits for it.
constexpr std::size_t largeCopy = std::size_t(4) << 20;

template <class T>
void writeNumbers(JNIEnv* env, typename JavaNumbers<T>::Java array, jsize from, jsize n, const T* values)
{
    if (n == 0)
        return;
    const std::size_t bytes = static_cast<std::size_t>(n) * sizeof(T);
    if (bytes < largeCopy) {
        JavaNumbers<T>::set(env, array, from, n, values);
        checkJava(env);
        return;
    }
    void* const elements = env->GetPrimitiveArrayCritical(array, nullptr);
    if (!elements)
        raiseJni(__LINE__);
    std::memcpy(static_cast<T*>(elements) + from, values, bytes);
    env->ReleasePrimitiveArrayCritical(array, elements, 0);
}

template <class T>
LocalRef<typename JavaNumbers<T>::Java> newNumbers(JNIEnv* env, jsize n)
{
    LocalRef<typename JavaNumbers<T>::Java> made(env, JavaNumbers<T>::make(env, n));
    if (!made)
        raiseJni(__LINE__);
    return made;
}

template <class T, int N>
LocalRef<jobjectArray> newObjects(JNIEnv* env, jsize n)
{
    const LocalRef<jclass> type = findElementClass(env, JavaArrayType<T, N>::classSignature);
    LocalRef<jobjectArray> made(env, env->NewObjectArray(n, type.get(), nullptr));
    if (!made)
        raiseJni(__LINE__);
    return made;
}

template <class T>
LocalRef<typename JavaNumbers<T>::Java> newNumbers(JNIEnv* env, const T* values, std::size_t size)
{
    const jsize n = javaSize(size);
    auto made = newNumbers<T>(env, n);
    writeNumbers(env, made.get(), 0, n, values);
    return made;
}

// ---- matrices: rows in Java, columns here

/// The target if it has the shape already, else an array of its own that takes the target's place when it is filled.
template <class T, int N>
class Receiver
{
public:
    template <class... Extents>
    explicit Receiver(Array<T, N>& target, Extents... extents) : target_(target)
    {
        const unsigned long wanted[N] = {static_cast<unsigned long>(extents)...};
        for (int d = 0; d < N; ++d)
            fits_ = fits_ && target.extent(d) == wanted[d];
        if (!fits_)
            fresh_.resize(wanted);
    }
    T* data() { return fits_ ? target_.data() : fresh_.data(); }
    void finish()
    {
        if (!fits_)
            target_.swap(fresh_);
    }

private:
    Array<T, N>& target_;
    Array<T, N> fresh_;
    bool fits_ = true;
};

/// Some neighbouring rows of a matrix, moved between Java and columns together: so a cache line of a column is touched
/// once and not once a row. The numbers go through a block of at most kRows times kColumns.
template <class T>
class RowBlock
{
public:
    using Row = typename JavaNumbers<T>::Java;
    static constexpr jsize kRows = 8, kColumns = 512;

    /// A matrix of m rows and n columns; element j of row r lies at r * rowStride + j * stride.
    RowBlock(JNIEnv* env, jsize m, jsize n, std::size_t rowStride, std::size_t stride)
        : env_(env), n_(n), rowStride_(rowStride), stride_(stride),
          block_(static_cast<std::size_t>(std::min(m, kRows)) * std::min(n, kColumns))
    {
    }
    ~RowBlock() { clear(); }
    RowBlock(const RowBlock&) = delete;
    RowBlock& operator=(const RowBlock&) = delete;

    bool isFull() const { return count_ == kRows; }
    /// Takes the reference over.
    void add(LocalRef<Row>&& row) { rows_[count_++] = row.release(); }

    /// Rows to columns, and the next rows.
    void read(T*& columns)
    {
        forChunks([&](jsize from, jsize width) {
            for (jsize r = 0; r < count_; ++r)
                readNumbers<T>(env_, rows_[r], from, width, block_.data() + r * width);
            T* const to = columns + static_cast<std::size_t>(from) * stride_;
            for (jsize j = 0; j < width; ++j)
                for (jsize r = 0; r < count_; ++r)
                    to[j * stride_ + r * rowStride_] = block_[static_cast<std::size_t>(r) * width + j];
        });
        next(columns);
    }
    /// Columns to rows, and the next rows.
    void write(const T*& columns)
    {
        forChunks([&](jsize from, jsize width) {
            const T* const source = columns + static_cast<std::size_t>(from) * stride_;
            for (jsize j = 0; j < width; ++j)
                for (jsize r = 0; r < count_; ++r)
                    block_[static_cast<std::size_t>(r) * width + j] = source[j * stride_ + r * rowStride_];
            for (jsize r = 0; r < count_; ++r)
                writeNumbers<T>(env_, rows_[r], from, width, block_.data() + r * width);
        });
        next(columns);
    }

private:
    template <class Work>
    void forChunks(Work&& work)
    {
        for (jsize from = 0; from < n_; from += kColumns)
            work(from, std::min(kColumns, n_ - from));
    }
    template <class P>
    void next(P& columns)
    {
        columns += count_ * rowStride_;
        clear();
    }
    void clear()
    {
        while (count_ > 0)
            env_->DeleteLocalRef(rows_[--count_]);
    }

    JNIEnv* env_;
    jsize n_;
    std::size_t rowStride_, stride_;
    std::vector<T> block_;
    Row rows_[kRows] = {};
    jsize count_ = 0;
};

void requireColumns(JNIEnv* env, jarray row, jsize n)
{
    if (lengthOf(env, row) != n)
        QX_RAISE("qxjarray", "Irregular_number_of_columns");
}

/// The rows of a matrix into an array with these strides.
template <class T>
void readRows(JNIEnv* env, jobjectArray array, jsize m, jsize n, T* columns, std::size_t rowStride, std::size_t stride)
{
    RowBlock<T> block(env, m, n, rowStride, stride);
    for (jsize i = 0; i < m; ++i) {
        auto row = requireElement<typename JavaNumbers<T>::Java>(env, array, i);
        requireColumns(env, row.get(), n);
        block.add(std::move(row));
        if (block.isFull())
            block.read(columns);
    }
    block.read(columns);
}

/// Whether a Java array is there already and can be written into.
enum class Rows { AreNew, MayBeThere };

/// An array with these strides into the rows of a Java matrix; rows that are not there or have another length are made.
template <class T>
void writeRows(JNIEnv* env, jobjectArray array, jsize m, jsize n, const T* columns, std::size_t rowStride,
               std::size_t stride, Rows rows)
{
    using Row = typename JavaNumbers<T>::Java;
    RowBlock<T> block(env, m, n, rowStride, stride);
    for (jsize i = 0; i < m; ++i) {
        LocalRef<Row> row(env, nullptr);
        if (rows == Rows::MayBeThere) {
            LocalRef<Row> there = elementOf<Row>(env, array, i);
            if (there && env->GetArrayLength(there.get()) == n)
                row.swap(there);
        }
        if (!row) {
            LocalRef<Row> made = newNumbers<T>(env, n);
            setElement(env, array, i, made.get());
            row.swap(made);
        }
        block.add(std::move(row));
        if (block.isFull())
            block.write(columns);
    }
    block.write(columns);
}

/// Extents of an array that Java can hold.
template <class T, int N>
struct JavaExtents
{
    explicit JavaExtents(const Array<T, N>& source)
    {
        for (int d = 0; d < N; ++d)
            n[d] = javaSize(source.extent(d));
        javaSize(source.size());
    }
    jsize n[N];
};

// ---- nested vectors and texts

template <class T>
constexpr bool isText = std::is_same_v<T, std::string> || std::is_same_v<T, std::wstring>;

template <class T>
T readText(JNIEnv* env, jstring text)
{
    if constexpr (std::is_same_v<T, std::string>)
        return qxbase::jStr2CppStr(env, text, qxbase::PendingException::Keep);
    else
        return qxbase::jStr2CppWStr(env, text, qxbase::PendingException::Keep);
}

template <class T>
void readVector(JNIEnv* env, typename JavaArrayType<T>::type* array, std::vector<T>& target)
{
    const jsize n = lengthOf(env, array);
    if constexpr (isText<T>) {
        std::vector<T> fresh;
        fresh.reserve(static_cast<std::size_t>(n));
        for (jsize i = 0; i < n; ++i)
            fresh.push_back(readText<T>(env, requireElement<jstring>(env, array, i).get()));
        target.swap(fresh);
    } else {
        target.resize(static_cast<std::size_t>(n));
        readNumbers<T>(env, array, 0, n, target.data());
    }
}

template <class T>
void readNested(JNIEnv* env, jobjectArray array, std::vector<std::vector<T>>& target)
{
    const jsize m = lengthOf(env, array);
    std::vector<std::vector<T>> fresh;
    const bool fits = target.size() == static_cast<std::size_t>(m);
    if (!fits)
        fresh.resize(static_cast<std::size_t>(m));
    std::vector<std::vector<T>>& into = fits ? target : fresh;
    for (jsize i = 0; i < m; ++i) {
        const auto row = requireElement<typename JavaArrayType<T>::type*>(env, array, i);
        readVector<T>(env, row.get(), into[static_cast<std::size_t>(i)]);
    }
    if (!fits)
        target.swap(fresh);
}

template <class T>
LocalRef<typename JavaArrayType<T>::type*> newVector(JNIEnv* env, const std::vector<T>& source)
{
    if constexpr (isText<T>) {
        const jsize n = javaSize(source.size());
        auto made = newObjects<T, 1>(env, n);
        for (jsize i = 0; i < n; ++i) {
            const LocalRef<jstring> text(
                env, qxbase::toJavaNew(env, source[static_cast<std::size_t>(i)], qxbase::PendingException::Keep));
            setElement(env, made.get(), i, text.get());
        }
        return made;
    } else {
        return newNumbers(env, source.data(), source.size());
    }
}

template <class T>
const std::vector<T>& rowOf(const std::vector<T>& row) { return row; }
template <class T>
const std::vector<T>& rowOf(const boost::shared_ptr<std::vector<T>>& row)
{
    if (!row)
        QX_RAISE("qxjarray", "Internal_error_array_processing");
    return *row;
}

template <class T, class Row>
jobjectArray newNested(JNIEnv* env, const std::vector<Row>& source)
{
    return convert(env, [&] {
        const jsize m = javaSize(source.size());
        auto made = newObjects<T, 2>(env, m);
        for (jsize i = 0; i < m; ++i)
            setElement(env, made.get(), i, newVector<T>(env, rowOf<T>(source[static_cast<std::size_t>(i)])).get());
        return made.release();
    });
}

/// A Java array of numbers with these values: the one that is there if its length fits, else a new one.
template <class T>
void putNumbers(JNIEnv* env, const T* values, std::size_t size, typename JavaNumbers<T>::Java& array)
{
    const jsize n = javaSize(size);
    if (array && env->GetArrayLength(array) == n)
        writeNumbers(env, array, 0, n, values);
    else
        array = newNumbers(env, values, size).release();
}

/// The outer array that is there if it has m elements, else a new one.
template <class T, int N>
class Outer
{
public:
    Outer(JNIEnv* env, jsize m, jobjectArray there) : there_(there), made_(env, nullptr)
    {
        if (there)
            requireType<T, N>(env, there);
        if (!there || env->GetArrayLength(there) != m) {
            LocalRef<jobjectArray> made = newObjects<T, N>(env, m);
            made_.swap(made);
        }
    }
    jobjectArray get() const { return made_ ? made_.get() : there_; }
    Rows rows() const { return made_ ? Rows::AreNew : Rows::MayBeThere; }
    /// Hands the array over.
    void finish(jobjectArray& array)
    {
        if (made_)
            array = made_.release();
    }

private:
    jobjectArray there_;
    LocalRef<jobjectArray> made_;
};

/// A matrix into the array that is there, rows included as far as they fit, else into a new one.
template <class T>
void putMatrix(JNIEnv* env, const Array<T, 2>& source, jobjectArray& array)
{
    const JavaExtents e(source);
    Outer<T, 2> outer(env, e.n[0], array);
    writeRows(env, outer.get(), e.n[0], e.n[1], source.data(), 1, source.stride(1), outer.rows());
    outer.finish(array);
}

/// Element (i, j, l) lies at i + j m + l m n: plane i is a matrix of n rows, m apart, and columns, m n apart.
template <class T>
void putPlanes(JNIEnv* env, const Array<T, 3>& source, jobjectArray& array)
{
    const JavaExtents e(source);
    Outer<T, 3> outer(env, e.n[0], array);
    for (jsize i = 0; i < e.n[0]; ++i) {
        LocalRef<jobjectArray> there(env, nullptr);
        if (outer.rows() == Rows::MayBeThere)
            there.swap(elementOf<jobjectArray>(env, outer.get(), i));
        Outer<T, 2> plane(env, e.n[1], there.get());
        writeRows(env, plane.get(), e.n[1], e.n[2], source.data() + i, source.stride(1), source.stride(2), plane.rows());
        if (plane.rows() == Rows::AreNew)
            setElement(env, outer.get(), i, plane.get());
    }
    outer.finish(array);
}

/// One handle for each row; pinned counts the rows whose references are held.
template <class T>
void pinRows(JNIEnv* env, jobjectArray array, std::vector<boost::shared_ptr<JavaArrayRH<T>>>& handles, jsize& pinned)
{
    using Handle = JavaArrayRH<T>;
    constexpr jsize reserve = 16;
    const jsize m = lengthOf(env, array);
    pinned = javaSize(static_cast<std::size_t>(pinned) + static_cast<std::size_t>(m) + reserve) - reserve;
    if (env->EnsureLocalCapacity(pinned + reserve) != JNI_OK)
        raiseJni(__LINE__);
    std::vector<boost::shared_ptr<Handle>> made;
    made.reserve(static_cast<std::size_t>(m));
    for (jsize i = 0; i < m; ++i) {
        auto row = requireElement<typename Handle::JavaArray*>(env, array, i);
        boost::shared_ptr<Handle> handle(new Handle(env, row.get(), JNI_FALSE, 0, true));
        row.release();
        made.push_back(handle);
    }
    handles.swap(made);
}

template <class T>
void pinMatrix(JNIEnv* env, jobjectArray matrix, std::vector<boost::shared_ptr<JavaArrayRH<T>>>& handles)
{
    convert(env, [&] {
        requireType<T, 2>(env, matrix);
        jsize pinned = 0;
        pinRows<T>(env, matrix, handles, pinned);
    });
}

} // namespace

// ---- Java to C++

template <class T>
void toCpp(JNIEnv* env, typename JavaArrayType<T, 1>::type* array, Array<T, 1>& target)
{
    convert(env, [&] {
        const jsize n = lengthOf(env, array);
        Receiver<T, 1> receiver(target, n);
        readNumbers<T>(env, array, 0, n, receiver.data());
        receiver.finish();
    });
}

template <class T>
void toCpp(JNIEnv* env, jobjectArray array, Array<T, 2>& target)
{
    convert(env, [&] {
        requireType<T, 2>(env, array);
        const jsize m = lengthOf(env, array);
        if (m == 0)
            return target.clear();
        const jsize n = lengthOf(env, requireElement<jarray>(env, array, 0).get());
        javaTotal(m, n);
        Receiver<T, 2> receiver(target, m, n);
        readRows(env, array, m, n, receiver.data(), 1, static_cast<std::size_t>(m));
        receiver.finish();
    });
}

template <class T>
void toCpp(JNIEnv* env, jobjectArray array, Array<T, 3>& target)
{
    convert(env, [&] {
        requireType<T, 3>(env, array);
        const jsize m = lengthOf(env, array);
        if (m == 0)
            return target.clear();
        jsize n = 0, k = 0;
        {
            const auto first = requireElement<jobjectArray>(env, array, 0);
            n = lengthOf(env, first.get());
            k = n == 0 ? 0 : lengthOf(env, requireElement<jarray>(env, first.get(), 0).get());
        }
        if (k > 0)
            javaTotal(javaTotal(m, n), k);
        Receiver<T, 3> receiver(target, m, n, k);
        for (jsize i = 0; i < m; ++i) {
            const auto plane = requireElement<jobjectArray>(env, array, i);
            requireColumns(env, plane.get(), n);
            readRows(env, plane.get(), n, k, receiver.data() + i, static_cast<std::size_t>(m), static_cast<std::size_t>(m) * n);
        }
        receiver.finish();
    });
}

template <class T>
void toCpp(JNIEnv* env, typename JavaArrayType<T, 1>::type* array, std::vector<T>& target)
{
    JavaArrayGetter<T, 1>::get(env, array, target);
}

template <class T>
void toCpp(JNIEnv* env, jobjectArray array, std::vector<std::vector<T>>& target)
{
    JavaArrayGetter<T, 2>::get(env, array, target);
}

template <class T, int N>
void JavaArrayGetter<T, N>::get(JNIEnv* env, typename JavaArrayType<T, N>::type* array,
                                typename NestedVector<T, N>::type& target)
{
    convert(env, [&] {
        if constexpr (N > 1 || isText<T>)
            requireType<T, N>(env, array);
        if constexpr (N == 1)
            readVector<T>(env, array, target);
        else
            readNested<T>(env, array, target);
    });
}

void toCpp(JNIEnv* env, jobjectArray array, std::vector<std::string>& target)
{
    JavaArrayGetter<std::string, 1>::get(env, array, target);
}
void toCpp(JNIEnv* env, jobjectArray array, std::vector<std::vector<std::string>>& target)
{
    JavaArrayGetter<std::string, 2>::get(env, array, target);
}
void toCpp(JNIEnv* env, jobjectArray array, std::vector<std::wstring>& target)
{
    JavaArrayGetter<std::wstring, 1>::get(env, array, target);
}
void toCpp(JNIEnv* env, jobjectArray array, std::vector<std::vector<std::wstring>>& target)
{
    JavaArrayGetter<std::wstring, 2>::get(env, array, target);
}

// ---- C++ to Java

template <class T>
typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv* env, const Array<T, 1>& source)
{
    return convert(env, [&] { return newNumbers(env, source.data(), source.size()).release(); });
}

template <class T>
jobjectArray toJavaNew(JNIEnv* env, const Array<T, 2>& source)
{
    jobjectArray made = nullptr;
    convert(env, [&] { putMatrix(env, source, made); });
    return made;
}

template <class T>
jobjectArray toJavaNew(JNIEnv* env, const Array<T, 3>& source)
{
    jobjectArray made = nullptr;
    convert(env, [&] { putPlanes(env, source, made); });
    return made;
}

template <class T>
typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv* env, const std::vector<T>& source)
{
    return convert(env, [&] { return newVector(env, source).release(); });
}

template <class T>
jobjectArray toJavaNew(JNIEnv* env, const std::vector<std::vector<T>>& source)
{
    return newNested<T>(env, source);
}

template <class T>
jobjectArray toJavaNew(JNIEnv* env, const std::vector<boost::shared_ptr<std::vector<T>>>& source)
{
    return newNested<T>(env, source);
}

void toJavaExisting(JNIEnv* env, const Array<double, 1>& source, jdoubleArray& array)
{
    convert(env, [&] { putNumbers(env, source.data(), source.size(), array); });
}

void toJavaExisting(JNIEnv* env, const Array<int, 1>& source, jintArray& array)
{
    convert(env, [&] { putNumbers(env, source.data(), source.size(), array); });
}

void toJavaExisting(JNIEnv* env, const Array<double, 2>& source, jobjectArray& array)
{
    convert(env, [&] { putMatrix(env, source, array); });
}

void toJavaExisting(JNIEnv* env, const Array<double, 3>& source, jobjectArray& array)
{
    convert(env, [&] { putPlanes(env, source, array); });
}

void toJavaExisting(JNIEnv* env, const std::vector<std::vector<double>>& source, jobjectArray& array)
{
    convert(env, [&] {
        const jsize m = javaSize(source.size());
        Outer<double, 2> outer(env, m, array);
        for (jsize i = 0; i < m; ++i) {
            const std::vector<double>& values = source[static_cast<std::size_t>(i)];
            LocalRef<jdoubleArray> there(env, nullptr);
            if (outer.rows() == Rows::MayBeThere)
                there.swap(elementOf<jdoubleArray>(env, outer.get(), i));
            if (there && env->GetArrayLength(there.get()) == javaSize(values.size()))
                writeNumbers(env, there.get(), 0, javaSize(values.size()), values.data());
            else
                setElement(env, outer.get(), i, newNumbers(env, values.data(), values.size()).get());
        }
        outer.finish(array);
    });
}

void toJavaExisting(JNIEnv* env, const std::complex<double>& source, jdoubleArray& array)
{
    const double parts[2] = {source.real(), source.imag()};
    convert(env, [&] { putNumbers(env, parts, 2, array); });
}

// ---- shapes

int checkSizeMatrix(JNIEnv* env, jobjectArray array, int rows)
{
    return convert(env, [&] {
        requireType<double, 2>(env, array);
        const jsize m = lengthOf(env, array);
        if (m != rows)
            QX_RAISE("qxjarray", "Illegal_number_of_rows");
        jsize n = 0;
        for (jsize i = 0; i < m; ++i) {
            const auto row = elementOf<jdoubleArray>(env, array, i);
            if (!row)
                QX_RAISE("qxjarray", "Illegal_number_of_columns");
            if (i == 0)
                n = env->GetArrayLength(row.get());
            requireColumns(env, row.get(), n);
        }
        return n;
    });
}

void jdA1cppdA2(JNIEnv* env, jdoubleArray array, int m, int n, Array<double, 2>& target)
{
    convert(env, [&] {
        const jsize length = lengthOf(env, array);
        if (m < 0 || n < 0 || static_cast<long long>(m) * n != length)
            QX_RAISE("qxjarray", "Illegal_number_of_rows");
        Receiver<double, 2> receiver(target, m, n);
        readNumbers<double>(env, array, 0, length, receiver.data());
        receiver.finish();
    });
}

void jVDblVDbl2CppV(JNIEnv* env, jdoubleArray re, jdoubleArray im, Matrix<1>& matrix)
{
    convert(env, [&] {
        const jsize n = lengthOf(env, re);
        if (im && env->GetArrayLength(im) != n)
            QX_RAISE("qxjarray", "Internal_error_array_processing");
        const auto size = static_cast<unsigned long>(n);
        const bool fits = matrix.isReal() == !im && matrix.size() == size && (matrix.isNoRealloc() || matrix.hasUniqueData());
        Matrix<1> fresh = fits ? Matrix<1>() : Matrix<1>(uninit_t(), size, !im);
        Matrix<1>& into = fits ? matrix : fresh;
        if (!im) {
            readNumbers<double>(env, re, 0, n, into.getdArr().data());
        } else {
            constexpr jsize chunk = 1024;
            double parts[2][chunk];
            std::complex<double>* const z = into.getzArr().data();
            for (jsize from = 0; from < n; from += chunk) {
                const jsize width = std::min(chunk, n - from);
                readNumbers<double>(env, re, from, width, parts[0]);
                readNumbers<double>(env, im, from, width, parts[1]);
                for (jsize k = 0; k < width; ++k)
                    z[from + k] = {parts[0][k], parts[1][k]};
            }
        }
        if (!fits)
            matrix = fresh;
    });
}

void jiM2viAH(JNIEnv* env, jobjectArray matrix, std::vector<boost::shared_ptr<jintArrayRH>>& handles)
{
    pinMatrix(env, matrix, handles);
}
void jfM2vfAH(JNIEnv* env, jobjectArray matrix, std::vector<boost::shared_ptr<jfloatArrayRH>>& handles)
{
    pinMatrix(env, matrix, handles);
}
void jdM2vdAH(JNIEnv* env, jobjectArray matrix, std::vector<boost::shared_ptr<jdoubleArrayRH>>& handles)
{
    pinMatrix(env, matrix, handles);
}

void jdA32vvdAH(JNIEnv* env, jobjectArray array, std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>>& handles)
{
    convert(env, [&] {
        requireType<double, 3>(env, array);
        const jsize m = lengthOf(env, array);
        std::vector<std::vector<boost::shared_ptr<jdoubleArrayRH>>> made(static_cast<std::size_t>(m));
        jsize pinned = 0;
        for (jsize i = 0; i < m; ++i)
            pinRows<double>(env, requireElement<jobjectArray>(env, array, i).get(), made[static_cast<std::size_t>(i)], pinned);
        handles.swap(made);
    });
}

// ---- the forms there are

#define QX_INSTANTIATE_ARRAYS(T)                                                                        template QX_API void toCpp(JNIEnv*, typename JavaArrayType<T, 1>::type*, Array<T, 1>&);             template QX_API void toCpp(JNIEnv*, jobjectArray, Array<T, 2>&);                                    template QX_API void toCpp(JNIEnv*, jobjectArray, Array<T, 3>&);                                    template QX_API typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv*, const Array<T, 1>&);         template QX_API jobjectArray toJavaNew(JNIEnv*, const Array<T, 2>&);                                template QX_API jobjectArray toJavaNew(JNIEnv*, const Array<T, 3>&);                                template QX_API void toCpp(JNIEnv*, jobjectArray, std::vector<std::vector<T>>&);
QX_INSTANTIATE_ARRAYS(double)
QX_INSTANTIATE_ARRAYS(int)

#define QX_INSTANTIATE_VECTORS(T)                                                                       template QX_API void toCpp(JNIEnv*, typename JavaArrayType<T, 1>::type*, std::vector<T>&);
QX_INSTANTIATE_VECTORS(double)
QX_INSTANTIATE_VECTORS(int)
QX_INSTANTIATE_VECTORS(signed char)
QX_INSTANTIATE_VECTORS(unsigned short)
QX_INSTANTIATE_VECTORS(long long)

#define QX_INSTANTIATE_NEW_VECTOR(T)     template QX_API typename JavaArrayType<T, 1>::type* toJavaNew(JNIEnv*, const std::vector<T>&);
QX_INSTANTIATE_NEW_VECTOR(double)
QX_INSTANTIATE_NEW_VECTOR(int)
QX_INSTANTIATE_NEW_VECTOR(signed char)
QX_INSTANTIATE_NEW_VECTOR(unsigned short)
QX_INSTANTIATE_NEW_VECTOR(long long)
QX_INSTANTIATE_NEW_VECTOR(std::string)
QX_INSTANTIATE_NEW_VECTOR(std::wstring)

#define QX_INSTANTIATE_NESTED(T)                                                                        template QX_API jobjectArray toJavaNew(JNIEnv*, const std::vector<std::vector<T>>&);                template QX_API jobjectArray toJavaNew(JNIEnv*, const std::vector<boost::shared_ptr<std::vector<T>>>&);
QX_INSTANTIATE_NESTED(double)
QX_INSTANTIATE_NESTED(int)
QX_INSTANTIATE_NESTED(std::string)
QX_INSTANTIATE_NESTED(std::wstring)

} // namespace qxarray
