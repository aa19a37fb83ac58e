#include "Model.h"

#include <pybind11/numpy.h>

#include <sstream>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/ErrorStream.h"
#include "Mrl/Zol/DataLoader.h"

namespace py = pybind11;

namespace ZolPython {

namespace {

// A failure while gathering facts doesn't stop the model from opening; ZolInfo reports it on
// standard error and goes on, and so does this, as a warning. Its text may hold a path's bytes.
void WarnOfFailure(const std::exception& failure) {
    py::module_::import("warnings")
        .attr("warn")(ToText(failure.what()), py::handle(PyExc_RuntimeWarning));
}

// The library's direct messages (a block that won't inflate) are caught while body runs and
// then given as RuntimeWarnings, before a failure of body goes on.
template <class Body>
void WarningOfMessages(Body&& body) {
    std::ostringstream messages;
    Mrl::Util::SetErrorStream(&messages);
    auto warn = [&messages] {
        Mrl::Util::SetErrorStream(nullptr);
        std::string text = messages.str();
        while (!text.empty() && text.back() == '\n') text.pop_back();
        if (!text.empty() && PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) != 0) {
            throw py::error_already_set();
        }
    };
    try {
        body();
    } catch (...) {
        warn();
        throw;
    }
    warn();
}

// The arrays' loads are not checked in the pass: nothing of their payloads is read before
// their values are asked for.
MrlZol::ModelFacts Collect(MrlZol::Tree& tree, const std::string& fileSizeText, bool withArrays) {
    return MrlZol::CollectModelFacts(tree, fileSizeText, withArrays, WarnOfFailure, false);
}

}  // namespace

Model::Model(const std::string& path) : path(path) {
    // The size is taken before the file is opened, as ZolInfo takes it.
    std::string fileSizeText = MrlZol::FileSizeText(path);
    int32_t openMode = 1;
    int32_t loadKind = 0;
    WarningOfMessages([&] {
        tree.Load(path, openMode, loadKind);
        facts = Collect(tree, fileSizeText, false);
    });
}

const std::vector<MrlZol::ArrayRecord>& Model::GetArrays() {
    if (!arrays) {
        arrays = Collect(tree, facts.fileSizeText, true).arrays;
        views.resize(arrays->size());
    }
    return *arrays;
}

py::object Model::LoadValues(size_t index) {
    const MrlZol::ArrayRecord& record = GetArrays().at(index);
    if (views[index]) {
        py::object alive = views[index]();
        if (!alive.is_none()) return alive;
    }
    uint32_t count = 0;
    const uint8_t* payload = nullptr;
    const MrlZol::DataLoader* loader = record.loader.get();
    if (loader != nullptr) {
        // One block of the name in memory at a time, whatever order the arrays are read in.
        loader->file.GetIndex().ReleaseBlocksOutside(loader->blockName, loader->position);
        auto tag = record.isFloat ? MrlZol::FloatElementTag : MrlZol::UnsignedElementTag;
        WarningOfMessages([&] { payload = loader->TakePayload(tag, count); });
    }
    auto buffer = std::make_unique_for_overwrite<uint32_t[]>(count);
    if (payload != nullptr) {
        MrlZol::DecodePayload(payload, count, loader->components, loader->isPlanar != 0,
                              buffer.get());
    }
    py::capsule owner(buffer.get(), [](void* words) { delete[] static_cast<uint32_t*>(words); });
    void* data = buffer.release();
    py::array view = record.isFloat
                         ? py::array(py::dtype::of<float>(), {size_t{count}}, {}, data, owner)
                         : py::array(py::dtype::of<uint32_t>(), {size_t{count}}, {}, data, owner);
    py::detail::array_proxy(view.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    views[index] = py::weakref(view);
    return view;
}

py::str ToText(const std::string& bytes) {
    PyObject* text = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()),
                                          "surrogateescape");
    if (text == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(text);
}

}  // namespace ZolPython
