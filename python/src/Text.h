#pragma once
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace ZolPython {

// A file's bytes as a Python text; bytes that are not UTF-8 survive as surrogate escapes, as
// os.fsdecode keeps them.
inline pybind11::str ToText(const std::string& bytes) {
    PyObject* text = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()),
                                          "surrogateescape");
    if (text == nullptr) throw pybind11::error_already_set();
    return pybind11::reinterpret_steal<pybind11::str>(text);
}

inline pybind11::list Texts(const std::vector<std::string>& values) {
    pybind11::list texts;
    for (const std::string& value : values) texts.append(ToText(value));
    return texts;
}

}  // namespace ZolPython
