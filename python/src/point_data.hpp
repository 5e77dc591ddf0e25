// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"

#include <pybind11/complex.h>
#include <pybind11/numpy.h>

#include <complex>
#include <cstddef>
#include <string>
#include <variant>
#include <vector>

/// One variable's values as NumPy holds them: any numeric type, any strides, broadcast to the shape of all.
class Column
{
public:
    using Buffer = std::variant<std::vector<double>, std::vector<std::complex<double>>>;

    /// values is kept alive. Raises TypeError for what holds no numbers of at most double precision.
    Column(std::string name, pybind11::array values);

    const std::string& name() const { return name_; }
    const pybind11::array& values() const { return values_; }
    bool isComplex() const { return complex_; }

    /// Fixes the shape of all; false if the column's own shape does not fit into it.
    bool broadcast(const std::vector<pybind11::ssize_t>& shape);

    /// Hands points first .. first + count - 1 to the kernel: one number, the memory of the array itself where that is
    /// contiguous and double or complex, a converted copy in buffer otherwise.
    void lend(qx::Points& points, std::size_t first, std::size_t count, Buffer& buffer) const;
    /// Whether lend needs no buffer.
    bool isDirect() const { return number_ || contiguous_; }

private:
    template <class T>
    void gather(std::size_t first, std::size_t count, T* to) const;
    template <class T, class Source>
    void gatherFrom(std::size_t first, std::size_t count, T* to) const;

    std::string name_;
    pybind11::array values_;
    char kind_;
    bool complex_;
    bool number_ = false;     // the same for all points
    bool contiguous_ = false; // as the kernel takes it
    std::vector<pybind11::ssize_t> shape_, strides_; // in bytes, 0 where broadcast
};

/// The values of variables at points of a common shape. Immutable; keeps the arrays alive.
class PointData
{
public:
    /// values: pairs of name and array. Raises ValueError for shapes that do not broadcast.
    explicit PointData(const std::vector<std::pair<std::string, pybind11::array>>& values);

    std::size_t count() const { return count_; }
    const std::vector<pybind11::ssize_t>& shape() const { return shape_; }
    bool isComplex() const;
    bool isDirect() const;
    const std::vector<Column>& columns() const { return columns_; }

private:
    std::vector<Column> columns_;
    std::vector<pybind11::ssize_t> shape_;
    std::size_t count_ = 1;
};

/// Where values go: an array of doubles or of complex numbers, any strides.
class Destination
{
public:
    /// Raises TypeError for another type, ValueError for another shape or a read-only array.
    Destination(pybind11::array values, const std::vector<pybind11::ssize_t>& shape);

    bool isComplex() const { return complex_; }
    bool isContiguous() const { return contiguous_; }
    /// The memory for points from `first` on; only of contiguous arrays.
    template <class T>
    T* data(std::size_t first) const
    {
        return reinterpret_cast<T*>(base_) + first;
    }
    template <class T>
    void scatter(std::size_t first, std::size_t count, const T* from) const;

private:
    pybind11::array values_;
    char* base_;
    bool complex_;
    bool contiguous_;
    std::vector<pybind11::ssize_t> shape_, strides_;
};
