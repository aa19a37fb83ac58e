#include "Model.h"

#include <Mrl/Model.h>
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <vector>

#include "Errors.h"
#include "Text.h"

namespace py = pybind11;

namespace ZolPython {

namespace {

// Loads without the GIL, so that other threads run while a model opens; the warnings of the
// load are given once it is held again.
Mrl::Model Open(const py::bytes& path) {
    const std::string name = path;
    std::vector<Mrl::Error> warnings;
    std::optional<Mrl::Model> model;
    std::optional<Mrl::Error> failure;
    {
        py::gil_scoped_release unlocked;
        try {
            model = Mrl::Model::Open(name, [&](const Mrl::Error& e) { warnings.push_back(e); });
        } catch (const Mrl::Error& error) {
            failure = error;
        }
    }
    for (const Mrl::Error& warning : warnings) Warn(warning);
    if (failure) Raise(*failure);
    return std::move(*model);
}

py::list Pairs(const std::vector<std::pair<std::string, std::string>>& entries) {
    py::list pairs;
    for (const auto& [key, value] : entries)
        pairs.append(py::make_tuple(ToText(key), ToText(value)));
    return pairs;
}

py::dict TranslationDict(const Mrl::Translation& record) {
    py::dict fields;
    fields["application_name"] = ToText(record.applicationName);
    fields["application_version"] = ToText(record.applicationVersion);
    fields["zol_version"] = ToText(record.zolVersion);
    fields["date"] = ToText(record.date);
    fields["extra_text"] = ToText(record.extraText);
    fields["user_name"] = ToText(record.userName);
    fields["comment"] = ToText(record.comment);
    return fields;
}

}  // namespace

void BindModel(py::module_& module) {
    py::class_<Mrl::Model>(module, "Model", "A loaded Zol file, as the library holds it.")
        .def_property_readonly(
            "path", [](const Mrl::Model& m) { return py::bytes(m.Path()); },
            "The path the model was opened with, as bytes.")
        .def_property_readonly(
            "version", [](const Mrl::Model& m) { return ToText(m.Version()); }, "The file version.")
        .def_property_readonly(
            "translations",
            [](const Mrl::Model& m) {
                py::list records;
                for (const Mrl::Translation& record : m.History())
                    records.append(TranslationDict(record));
                return records;
            },
            "The translation history, oldest first: dicts of seven texts.")
        .def(
            "report", [](const Mrl::Model& m) { return Pairs(m.Report()); },
            "The metadata report's entries as (name, value) pairs.")
        .def(
            "ekm_report", [](const Mrl::Model& m) { return Pairs(m.EkmReport()); },
            "The report's entries in the EKM vocabulary.")
        .def(
            "arrays", [](const Mrl::Model& m) { return m.Arrays(); },
            "Every array of the data dump, in its order; new handles at each call.");
    module.def("open", &Open, py::arg("path"),
               "Loads the model at path (bytes); zolfile.Error if it can't be loaded.");
}

}  // namespace ZolPython
