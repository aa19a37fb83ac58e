#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>

#include "Diff.h"
#include "Errors.h"
#include "Model.h"
#include "Mrl/Zol/ReportEntry.h"

namespace py = pybind11;
using ZolPython::Model;
using ZolPython::ToText;

namespace {

using ModelPointer = std::shared_ptr<Model>;

// One array of the model as Python sees it; it keeps its model open.
struct Array {
    ModelPointer model;
    size_t index;

    const MrlZol::ArrayRecord& Record() const { return model->GetArrays()[index]; }
};

py::list Texts(const std::vector<std::string>& values) {
    py::list texts;
    for (const std::string& value : values) texts.append(ToText(value));
    return texts;
}

py::dict TranslationDict(const MrlZol::TranslationRecord& record) {
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

py::list ReportPairs(const Model& model, bool ekm) {
    py::list pairs;
    for (const MrlZol::ReportEntry& entry : MrlZol::ReportEntries(model.GetFacts())) {
        const std::string key = ekm ? MrlZol::ToEkmKey(entry.key) : entry.key;
        pairs.append(py::make_tuple(ToText(key), ToText(entry.value)));
    }
    return pairs;
}

py::list ArrayList(const ModelPointer& model) {
    py::list arrays;
    for (size_t i = 0; i < model->GetArrays().size(); ++i) arrays.append(Array{model, i});
    return arrays;
}

void BindArray(py::module_& module) {
    py::class_<Array>(module, "Array", "One array of the model; its values are read on demand.")
        .def_property_readonly("analysis",
                               [](const Array& a) { return ToText(a.Record().analysis); })
        .def_property_readonly("geometry",
                               [](const Array& a) { return ToText(a.Record().geometryName); })
        .def_property_readonly("name", [](const Array& a) { return ToText(a.Record().itemName); })
        .def_property_readonly("result",
                               [](const Array& a) { return ToText(a.Record().resultName); })
        .def_property_readonly("instance",
                               [](const Array& a) { return ToText(a.Record().instanceName); })
        .def_property_readonly("kind", [](const Array& a) { return a.Record().kind; })
        .def_property_readonly("is_float", [](const Array& a) { return a.Record().isFloat; })
        .def_property_readonly("count", [](const Array& a) { return a.Record().count; })
        .def_property_readonly("element_sets",
                               [](const Array& a) { return Texts(a.Record().elementSets); })
        .def(
            "values", [](const Array& a) { return a.model->LoadValues(a.index); },
            "The values as a read-only numpy array: float32, or uint32 for connectivity.")
        .def("__repr__", [](const Array& a) {
            return py::str("<zolfile.Array {!r} of {!r}>")
                .format(ToText(a.Record().itemName), ToText(a.Record().geometryName));
        });
}

void BindModel(py::module_& module) {
    py::class_<Model, ModelPointer>(module, "Model", "An opened Zol file.")
        .def_property_readonly("version", [](Model& m) { return ToText(m.GetVersion()); })
        .def_property_readonly("translations",
                               [](const Model& m) {
                                   py::list records;
                                   for (const auto& record : m.GetFacts().translations)
                                       records.append(TranslationDict(record));
                                   return records;
                               })
        .def(
            "report", [](const Model& m) { return ReportPairs(m, false); },
            "The metadata report's entries as (name, value) pairs.")
        .def(
            "ekm_report", [](const Model& m) { return ReportPairs(m, true); },
            "The report's entries in the EKM vocabulary.")
        .def("arrays", &ArrayList, "Every array of the data dump, in its order.");
}

}  // namespace

PYBIND11_MODULE(_zolfile, module) {
    module.doc() = "Reader of Zol model files";
    ZolPython::RegisterErrors(module);
    BindArray(module);
    BindModel(module);
    ZolPython::RegisterDiff(module);
    module.def(
        "open", [](const std::string& path) { return std::make_shared<Model>(path); },
        py::arg("path"), "Loads the model; a file that can't be loaded raises zolfile.Error.");
}
