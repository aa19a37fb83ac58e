#pragma once
#include <pybind11/pybind11.h>

#include <Mrl/Model.h>

namespace ZolPython {

// Makes every Mrl::Error that reaches Python a zolfile.Error (zolfile/errors.py builds it):
// one-line str(), kind, description, where and filename.
void RegisterErrors();

// Raises the Python error for failure.
[[noreturn]] void Raise(const Mrl::Error& failure);

// What the library would have printed, as a RuntimeWarning of one line.
void Warn(const Mrl::Error& warning);

}  // namespace ZolPython
