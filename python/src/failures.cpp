#include "failures.hpp"

#include "qxexception.hpp"

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

} // namespace

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
