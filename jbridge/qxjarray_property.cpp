// SPDX-License-Identifier: LicenseRef-qxkernel
// Matrices and arrays inside property values.

#include "qxjarray.hpp"

#include "jbridge/qxjarray_detail.hpp"

#include <algorithm>

namespace qxarray {

namespace {

[[noreturn]] void raiseInternal() { QX_RAISE("qxjarray", "Internal_error_array_processing"); }

template <int N>
using DoubleArray = Array<double, N>;
template <int N>
using VectorOfMatrices = boost::shared_ptr<std::vector<Matrix<N>>>;
template <int N>
using VectorOfArrays = boost::shared_ptr<std::vector<DoubleArray<N>>>;

/// Calls work with what value holds, Form<1>, Form<2> or Form<3>; any is boost::any or its const form.
template <template <int> class Form, class Any, class Work, int N = 1>
auto withForm(Any& value, Work&& work)
{
    if (auto* held = boost::any_cast<Form<N>>(&value))
        return work(*held);
    if constexpr (N < 3)
        return withForm<Form, Any, Work, N + 1>(value, std::forward<Work>(work));
    else
        raiseInternal();
}

template <template <int> class Form>
bool holds(const boost::any& value)
{
    return boost::any_cast<Form<1>>(&value) || boost::any_cast<Form<2>>(&value) || boost::any_cast<Form<3>>(&value);
}

/// The same with the vector behind the pointer.
template <template <int> class Form, class Work>
auto withVector(const boost::any& value, Work&& work)
{
    return withForm<Form>(value, [&](const auto& pointer) {
        if (!pointer)
            raiseInternal();
        return work(*pointer);
    });
}

/// The same with element i.
template <template <int> class Form, class Work>
auto withElement(const boost::any& value, int i, Work&& work)
{
    return withVector<Form>(value, [&](auto& vector) {
        if (i < 0 || static_cast<std::size_t>(i) >= vector.size())
            raiseInternal();
        return work(vector[static_cast<std::size_t>(i)]);
    });
}

long address(const void* data, unsigned long size) { return size == 0 ? 0 : reinterpret_cast<long>(data); }

// What is read, the same for a value and for an element of a vector.

constexpr auto matrixAddress = [](const auto& matrix) {
    return matrix.isReal() ? address(matrix.gethdArr().data(), matrix.size())
                           : address(matrix.gethzArr().data(), matrix.size());
};
constexpr auto matrixIsReal = [](const auto& matrix) { return matrix.isReal(); };

template <int N, class Extent>
std::vector<int> extents(Extent&& extent, unsigned long total)
{
    std::vector<int> dims;
    for (int d = 0; d < N; ++d)
        dims.push_back(javaSize(extent(d)));
    javaSize(total);
    return dims;
}
constexpr auto matrixDims = []<int N>(const Matrix<N>& matrix) {
    return extents<N>([&](int d) { return matrix.size(d); }, matrix.size());
};
constexpr auto arrayDims = []<int N>(const Array<double, N>& array) {
    return extents<N>([&](int d) { return array.extent(d); }, array.size());
};
constexpr auto arrayAddress = [](const auto& array) { return address(array.data(), array.size()); };
constexpr auto arrayLength = [](const auto& array) { return static_cast<int>(javaSize(array.size())); };
constexpr auto arrayValues = [](const auto& array) {
    javaSize(array.size());
    return std::vector<double>(array.begin(), array.end());
};

template <class T, int N>
Matrix<N> zeroMatrix(const unsigned long (&n)[N])
{
    const boost::shared_ptr<Array<T, N>> array(new Array<T, N>(n));
    *array = T(0);
    return Matrix<N>(array);
}

template <int N>
void setDims(Matrix<N>& matrix, const std::vector<int>& dims, bool real)
{
    if (dims.size() != N || std::any_of(dims.begin(), dims.end(), [](int n) { return n < 0; }))
        raiseInternal();
    unsigned long n[N];
    std::copy(dims.begin(), dims.end(), n);
    bool fits = matrix.isReal() == real;
    for (int d = 0; d < N; ++d)
        fits = fits && matrix.size(d) == n[d];
    if (fits) {
        real ? void(matrix.getdArr()) : void(matrix.getzArr()); // no longer shared
        return;
    }
    if (matrix.isNoRealloc())
        raiseInternal();
    matrix = real ? zeroMatrix<double>(n) : zeroMatrix<std::complex<double>>(n);
}

} // namespace

long getMatrixAdr(const boost::any& value) { return withForm<Matrix>(value, matrixAddress); }
bool isMatrixReal(const boost::any& value) { return withForm<Matrix>(value, matrixIsReal); }
std::vector<int> getMatrixDim(const boost::any& value)
{
    return raisingOutOfMemory([&] { return withForm<Matrix>(value, matrixDims); });
}

void setMatrixDim(boost::any& value, const std::vector<int>& dims, bool real)
{
    raisingOutOfMemory([&] { withForm<Matrix>(value, [&](auto& matrix) { setDims(matrix, dims, real); }); });
}

int getVMatrixLen(const boost::any& value)
{
    return withVector<VectorOfMatrices>(value, [](const auto& vector) { return static_cast<int>(javaSize(vector.size())); });
}

long getVMatrixAdr(const boost::any& value, int i) { return withElement<VectorOfMatrices>(value, i, matrixAddress); }
bool isVMatrixReal(const boost::any& value, int i) { return withElement<VectorOfMatrices>(value, i, matrixIsReal); }
std::vector<int> getVMatrixDim(const boost::any& value, int i)
{
    return raisingOutOfMemory([&] { return withElement<VectorOfMatrices>(value, i, matrixDims); });
}

void setVMatrixLen(boost::any& value, int n, bool real)
{
    if (n < 0)
        raiseInternal();
    raisingOutOfMemory([&] {
        withVector<VectorOfMatrices>(value, [&]<class M>(std::vector<M>& vector) {
            M empty;
            if (!real)
                empty.real2complex();
            vector.resize(static_cast<std::size_t>(n), empty);
        });
    });
}

void setVMatrixDim(boost::any& value, const std::vector<int>& dims, bool real, int i)
{
    raisingOutOfMemory([&] { withElement<VectorOfMatrices>(value, i, [&](auto& matrix) { setDims(matrix, dims, real); }); });
}

long getDoubleArrayAdr(const boost::any& value) { return withForm<DoubleArray>(value, arrayAddress); }
long getDoubleArrayAdr(const boost::any& value, int i) { return withElement<VectorOfArrays>(value, i, arrayAddress); }
std::vector<double> getDoubleArrayVal(const boost::any& value)
{
    return raisingOutOfMemory([&] { return withForm<DoubleArray>(value, arrayValues); });
}
std::vector<double> getDoubleArrayVal(const boost::any& value, int i)
{
    return raisingOutOfMemory([&] { return withElement<VectorOfArrays>(value, i, arrayValues); });
}
std::vector<int> getDoubleArrayDim(const boost::any& value)
{
    return raisingOutOfMemory([&] { return withForm<DoubleArray>(value, arrayDims); });
}
std::vector<int> getDoubleArrayDim(const boost::any& value, int i)
{
    return raisingOutOfMemory([&] { return withElement<VectorOfArrays>(value, i, arrayDims); });
}

int getDoubleArrayLen(const boost::any& value)
{
    if (holds<DoubleArray>(value))
        return withForm<DoubleArray>(value, arrayLength);
    return withVector<VectorOfArrays>(value, [](const auto& vector) { return static_cast<int>(javaSize(vector.size())); });
}
int getDoubleArrayLen(const boost::any& value, int i) { return withElement<VectorOfArrays>(value, i, arrayLength); }

} // namespace qxarray
