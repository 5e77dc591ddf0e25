// SPDX-License-Identifier: LicenseRef-qxkernel
#include "point_data.hpp"

#include <cstdint>
#include <cstring>
#include <functional>
#include <numeric>

namespace py = pybind11;

using Complex = std::complex<double>;

namespace {

using Shape = std::vector<py::ssize_t>;

/// Walks points first, first + 1, ... of an array in C order and calls visit with the address of each.
template <class Visit>
void walk(const Shape& shape, const Shape& strides, const char* base, std::size_t first, std::size_t count,
          const Visit& visit)
{
    if (shape.empty()) {
        for (std::size_t k = 0; k < count; ++k)
            visit(base);
        return;
    }
    Shape index(shape.size());
    std::size_t rest = first;
    for (std::size_t d = shape.size(); d-- > 0;) {
        const auto extent = static_cast<std::size_t>(shape[d]);
        index[d] = static_cast<py::ssize_t>(rest % extent);
        rest /= extent;
        base += index[d] * strides[d];
    }
    const std::size_t last = shape.size() - 1;
    for (std::size_t done = 0; done < count;) {
        const std::size_t run = std::min(count - done, static_cast<std::size_t>(shape[last] - index[last]));
        const char* at = base;
        for (std::size_t k = 0; k < run; ++k, at += strides[last])
            visit(at);
        done += run;
        base += static_cast<py::ssize_t>(run) * strides[last];
        index[last] += static_cast<py::ssize_t>(run);
        for (std::size_t d = last; d > 0 && index[d] == shape[d]; --d) {
            base += strides[d - 1] - index[d] * strides[d];
            index[d] = 0;
            ++index[d - 1];
        }
    }
}

std::string shapeText(const Shape& shape)
{
    std::string text = "(";
    for (const py::ssize_t extent : shape)
        text += (text.size() > 1 ? ", " : "") + std::to_string(extent);
    return text + ")";
}

bool isCompact(const Shape& shape, const Shape& strides, py::ssize_t size)
{
    for (std::size_t d = shape.size(); d-- > 0; size *= shape[d])
        if (shape[d] != 1 && strides[d] != size)
            return false;
    return true;
}

bool isAligned(const void* p) { return reinterpret_cast<std::uintptr_t>(p) % alignof(double) == 0; }

std::size_t product(const Shape& shape)
{
    return std::accumulate(shape.begin(), shape.end(), std::size_t(1),
                           [](std::size_t n, py::ssize_t extent) { return n * static_cast<std::size_t>(extent); });
}

/// One letter for each type that is taken, by kind and size.
char kindOf(const std::string& name, const py::array& values)
{
    const py::dtype type = values.dtype();
    const bool native = type.attr("isnative").cast<bool>();
    const std::string code = std::string(1, type.kind()) + std::to_string(type.itemsize());
    const struct
    {
        const char* code;
        char kind;
    } known[] = {{"f8", 'd'}, {"f4", 'f'}, {"c16", 'z'}, {"c8", 'c'}, {"i8", 'l'}, {"i4", 'i'}, {"i2", 'h'},
                 {"i1", 'b'}, {"u8", 'L'}, {"u4", 'I'}, {"u2", 'H'}, {"u1", 'B'}, {"b1", '?'}};
    for (const auto& entry : known)
        if (native && code == entry.code)
            return entry.kind;
    throw py::type_error("the values of '" + name + "' are of type " + std::string(py::str(py::handle(type))) +
                         ", which cannot be taken as double precision numbers");
}

} // namespace

// --- Column -----------------------------------------------------------------------------------------------------------

Column::Column(std::string name, py::array values)
    : name_(std::move(name)), values_(std::move(values)), kind_(kindOf(name_, values_)),
      complex_(kind_ == 'z' || kind_ == 'c')
{
}

bool Column::broadcast(const Shape& shape)
{
    const auto own = static_cast<std::size_t>(values_.ndim());
    if (own > shape.size())
        return false;
    shape_ = shape;
    strides_.assign(shape.size(), 0);
    for (std::size_t d = 0; d < own; ++d) {
        const std::size_t to = shape.size() - own + d;
        if (values_.shape(static_cast<py::ssize_t>(d)) == shape[to])
            strides_[to] = shape[to] == 1 ? 0 : values_.strides(static_cast<py::ssize_t>(d));
        else if (values_.shape(static_cast<py::ssize_t>(d)) != 1)
            return false;
    }
    number_ = values_.size() == 1;
    contiguous_ = !number_ && (kind_ == 'd' || kind_ == 'z') && isCompact(shape_, strides_, values_.itemsize()) &&
                  isAligned(values_.data());
    return true;
}

template <class T, class Source>
void Column::gatherFrom(std::size_t first, std::size_t count, T* to) const
{
    walk(shape_, strides_, static_cast<const char*>(values_.data()), first, count, [&](const char* at) {
        Source value;
        std::memcpy(&value, at, sizeof value);
        *to++ = T(value);
    });
}

template <class T>
void Column::gather(std::size_t first, std::size_t count, T* to) const
{
    if constexpr (std::is_same_v<T, Complex>) {
        return kind_ == 'z' ? gatherFrom<T, Complex>(first, count, to)
                            : gatherFrom<T, std::complex<float>>(first, count, to);
    } else {
        switch (kind_) {
        case 'd': return gatherFrom<T, double>(first, count, to);
        case 'f': return gatherFrom<T, float>(first, count, to);
        case 'l': return gatherFrom<T, std::int64_t>(first, count, to);
        case 'i': return gatherFrom<T, std::int32_t>(first, count, to);
        case 'h': return gatherFrom<T, std::int16_t>(first, count, to);
        case 'b': return gatherFrom<T, std::int8_t>(first, count, to);
        case 'L': return gatherFrom<T, std::uint64_t>(first, count, to);
        case 'I': return gatherFrom<T, std::uint32_t>(first, count, to);
        case 'H': return gatherFrom<T, std::uint16_t>(first, count, to);
        default: return gatherFrom<T, std::uint8_t>(first, count, to); // bool too
        }
    }
}

void Column::lend(qx::Points& points, std::size_t first, std::size_t count, Buffer& buffer) const
{
    const auto give = [&]<class T>(T) {
        if (number_) {
            T value{};
            gather(0, 1, &value);
            points.set(name_, value);
        } else if (contiguous_) {
            points.set(name_, std::span<const T>(static_cast<const T*>(values_.data()) + first, count));
        } else {
            if (!std::holds_alternative<std::vector<T>>(buffer))
                buffer = std::vector<T>();
            auto& room = std::get<std::vector<T>>(buffer);
            room.resize(count);
            gather(first, count, room.data());
            points.set(name_, std::span<const T>(room));
        }
    };
    if (complex_)
        give(Complex());
    else
        give(double());
}

// --- PointData --------------------------------------------------------------------------------------------------------

PointData::PointData(const std::vector<std::pair<std::string, py::array>>& values)
{
    for (const auto& [name, array] : values)
        columns_.emplace_back(name, array);
    for (const Column& column : columns_) {
        const auto own = static_cast<std::size_t>(column.values().ndim());
        if (own > shape_.size())
            shape_.insert(shape_.begin(), own - shape_.size(), 1);
        for (std::size_t d = 0; d < own; ++d) {
            py::ssize_t& extent = shape_[shape_.size() - own + d];
            if (extent == 1)
                extent = column.values().shape(static_cast<py::ssize_t>(d));
        }
    }
    for (Column& column : columns_)
        if (!column.broadcast(shape_)) {
            Shape own(column.values().shape(), column.values().shape() + column.values().ndim());
            throw py::value_error("the values of '" + column.name() + "' have shape " + shapeText(own) +
                                  ", which does not fit " + shapeText(shape_));
        }
    count_ = product(shape_);
}

bool PointData::isComplex() const
{
    return std::any_of(columns_.begin(), columns_.end(), std::mem_fn(&Column::isComplex));
}

bool PointData::isDirect() const
{
    return std::all_of(columns_.begin(), columns_.end(), std::mem_fn(&Column::isDirect));
}

// --- Destination ------------------------------------------------------------------------------------------------------

Destination::Destination(py::array values, const Shape& shape) : values_(std::move(values)), shape_(shape)
{
    const char kind = kindOf("out", values_);
    if (kind != 'd' && kind != 'z')
        throw py::type_error("out must be an array of float64 or complex128");
    const Shape own(values_.shape(), values_.shape() + values_.ndim());
    if (own != shape)
        throw py::value_error("out has shape " + shapeText(own) + ", the values have shape " + shapeText(shape));
    if (!values_.writeable())
        throw py::value_error("out is read-only");
    base_ = static_cast<char*>(values_.mutable_data());
    complex_ = kind == 'z';
    strides_.assign(values_.strides(), values_.strides() + values_.ndim());
    contiguous_ = isCompact(shape_, strides_, values_.itemsize()) && isAligned(base_);
}

template <class T>
void Destination::scatter(std::size_t first, std::size_t count, const T* from) const
{
    walk(shape_, strides_, base_, first, count,
         [&](const char* at) { std::memcpy(const_cast<char*>(at), from++, sizeof(T)); });
}

template void Destination::scatter(std::size_t, std::size_t, const double*) const;
template void Destination::scatter(std::size_t, std::size_t, const Complex*) const;
