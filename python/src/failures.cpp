// SPDX-License-Identifier: LicenseRef-qxkernel
#include "failures.hpp"

#include "qxexception.hpp"

#include <optional>

namespace py = pybind11;

namespace {

py::object errorClass(const char* name) { return py::module_::import("qxkernel.errors").attr(name); }

py::tuple argumentsOf(const qxbase::Exception& e, std::size_t entry)
{
    py::list list;
    for (const auto& [key, value] : e.getArgs(entry))
        list.append(py::make_tuple(py::str(key), py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
                                                     value.data(), static_cast<Py_ssize_t>(value.size()), "replace"))));
    return py::tuple(list);
}

/// The stack as a tuple of (module, line, identifier, ((key, value), ...)), innermost first.
py::tuple storyOf(const qxbase::Exception& e)
{
    py::list list;
    for (std::size_t i = 0; i < e.size(); ++i)
        list.append(py::make_tuple(e.getFile(i), e.getLine(i), e.getId(i), argumentsOf(e, i)));
    return py::tuple(list);
}

void setError(const char* className, const qxbase::Exception& e)
{
    const py::object error = errorClass(className);
    PyErr_SetObject(error.ptr(), error(storyOf(e)).ptr());
}

/// Where the story tells at which point it happened: the entry, and the place of the argument in it.
constexpr const char* pointEntry = "Evaluation_failed_at_point";

std::optional<std::size_t> pointOf(const qxbase::Exception& e)
{
    for (std::size_t i = 0; i < e.size(); ++i)
        if (e.getId(i) == pointEntry)
            for (const auto& [key, value] : e.getArgs(i))
                if (key == "Point")
                    return std::stoul(value);
    return std::nullopt;
}

/// The index of a point in arrays of a shape; a number for one dimension.
py::object indexOf(std::size_t point, const std::vector<py::ssize_t>& shape)
{
    if (shape.size() == 1)
        return py::int_(point);
    py::tuple index(shape.size());
    for (std::size_t d = shape.size(); d-- > 0;) {
        index[d] = py::int_(point % static_cast<std::size_t>(shape[d]));
        point /= static_cast<std::size_t>(shape[d]);
    }
    return index;
}

/// A copy of a story whose point is counted from the beginning of the arrays.
qxbase::Exception moved(const qxbase::Exception& e, std::size_t point)
{
    std::optional<qxbase::Exception> copy;
    for (std::size_t i = 0; i < e.size(); ++i) {
        qxbase::ExceptionArgs args = e.getArgs(i);
        if (e.getId(i) == pointEntry)
            for (auto& [key, value] : args)
                if (key == "Point")
                    value = std::to_string(point);
        if (copy)
            copy->add(e.getFile(i), e.getLine(i), e.getId(i), args);
        else
            copy.emplace(e.getFile(i), e.getLine(i), e.getId(i), args);
    }
    return copy ? *copy : e;
}

} // namespace

py::object errorAtPoint(const qxbase::Exception& story, std::size_t point, std::size_t first,
                        const std::vector<py::ssize_t>& shape)
{
    point = pointOf(story).value_or(point) + first;
    return errorClass("Error")(storyOf(moved(story, point)), indexOf(point, shape));
}

void raiseAtPoint(const qxbase::Exception& story, std::size_t first, const std::vector<py::ssize_t>& shape)
{
    if (!pointOf(story))
        throw story;
    const py::object error = errorAtPoint(story, 0, first, shape);
    PyErr_SetObject(errorClass("Error").ptr(), error.ptr());
    throw py::error_already_set();
}

void bindFailures(py::module_&)
{
    py::register_exception_translator([](std::exception_ptr failure) {
        if (!failure)
            return;
        try {
            std::rethrow_exception(failure);
        } catch (const qxbase::CancelException& e) {
            setError("Cancelled", e);
        } catch (const qxbase::Exception& e) {
            setError("Error", e);
        }
    });
}

void raiseError(const std::string& identifier, const std::string& key, const std::string& value)
{
    throw qxbase::Exception("python", 0, identifier, key, value);
}
