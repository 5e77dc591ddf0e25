// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "matrix.hpp"

#include <pybind11/complex.h>
#include <pybind11/numpy.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <complex>
#include <memory>
#include <string>

/// Exchange of dense values with NumPy. What comes in has been brought to float64 or complex128 in the order that is
/// asked for (c_style and f_style: contiguous, rows or columns first); what goes out is a new array.

template <class T>
using Vector = pybind11::array_t<T, pybind11::array::c_style>;
template <class T>
using ColumnMajor = pybind11::array_t<T, pybind11::array::f_style>;

/// Whether an array's elements are complex numbers.
inline bool isComplex(const pybind11::array& values) { return values.dtype().kind() == 'c'; }

template <class T>
Array<T, 1> toArray1(const pybind11::array& values)
{
    const auto source = Vector<T>::ensure(values);
    if (!source)
        throw pybind11::error_already_set();
    Array<T, 1> result(static_cast<unsigned long>(source.size()));
    std::copy_n(source.data(), source.size(), result.data());
    return result;
}

template <class T>
Array<T, 2> toArray2(const pybind11::array& values)
{
    const auto source = ColumnMajor<T>::ensure(values);
    if (!source)
        throw pybind11::error_already_set();
    if (source.ndim() != 2)
        throw pybind11::value_error("a matrix (2 dimensions) is needed, not " + std::to_string(source.ndim()));
    Array<T, 2> result(static_cast<unsigned long>(source.shape(0)), static_cast<unsigned long>(source.shape(1)));
    std::copy_n(source.data(), source.size(), result.data());
    return result;
}

inline Matrix<1> toMatrix1(const pybind11::array& values)
{
    if (isComplex(values))
        return Matrix<1>(boost::make_shared<Array<std::complex<double>, 1>>(toArray1<std::complex<double>>(values)));
    return Matrix<1>(boost::make_shared<Array<double, 1>>(toArray1<double>(values)));
}

template <class T>
pybind11::array toNumpy(const Array<T, 1>& values)
{
    return pybind11::array_t<T>(static_cast<pybind11::ssize_t>(values.size()), values.data());
}

template <class T>
pybind11::array toNumpy(const Array<T, 2>& values)
{
    pybind11::array_t<T, pybind11::array::f_style> result(
        {static_cast<pybind11::ssize_t>(values.extent(0)), static_cast<pybind11::ssize_t>(values.extent(1))});
    std::copy_n(values.data(), values.size(), result.mutable_data());
    return result;
}

inline pybind11::array toNumpy(const Matrix<1>& values)
{
    return values.isReal() ? toNumpy(values.gethdArr()) : toNumpy(values.gethzArr());
}
