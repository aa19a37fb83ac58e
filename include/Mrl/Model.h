// The public API of the library Mrl: read a Zol file's report, history and arrays.
//
// The rules, in short (docs/library.md says more):
// - Ownership: Model and Array are handles that own what they need. An Array keeps its file
//   open and stays usable after its Model is moved from or destroyed; copies of a Model or an
//   Array share one open file. Nothing returned points into the library's memory.
// - Threads: separate models may be used in separate threads at the same time, and one model
//   (or its arrays) may be read from several threads at once. The library has no
//   process-wide mutable state.
// - Errors: every failure is an Mrl::Error naming the file; nothing else is thrown but
//   std::bad_alloc. The library never prints and writes no file: what a reading step would
//   have printed goes to the warning handler given to Open.
//
// This header needs C++17 and nothing beyond the standard library.
#ifndef MRL_MODEL_H
#define MRL_MODEL_H

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#if defined(_WIN32)
#define MRL_API
#else
#define MRL_API __attribute__((visibility("default")))
#endif

namespace Mrl {

// The one error type. Kind() is the failure's kind number as ZolInfo's exceptions carry it
// (1 "Out of Bounds", 9 "Read Error", 11 "Format Not Supported", ...); File() is the path the
// model was opened with; Description() the failure alone; Where() the array or block it was
// about, or empty; SystemError() the errno of a failure of the system (a missing file: ENOENT),
// else 0. what() is one line: "FILE: WHERE: DESCRIPTION" (WHERE left out when empty), control
// characters shown as \xHH.
class MRL_API Error : public std::runtime_error {
public:
    Error(std::uint32_t kind, const std::string& file, const std::string& description,
          const std::string& where = std::string(), int systemError = 0);

    std::uint32_t Kind() const noexcept;
    const std::string& File() const noexcept;
    const std::string& Description() const noexcept;
    const std::string& Where() const noexcept;
    int SystemError() const noexcept;

private:
    struct Details;
    std::shared_ptr<const Details> details;
};

// Called for each failure of a step that gathers the report's facts: the model opens all the
// same, with what could be gathered (ZolInfo prints these and goes on).
using WarningHandler = std::function<void(const Error&)>;

// One translation of the file, oldest first in Model::History().
struct Translation {
    std::string applicationName;
    std::string applicationVersion;
    std::string zolVersion;
    std::string date;
    std::string extraText;
    std::string userName;
    std::string comment;
};

// One array of the model: the mesh's coordinates, ids and connectivity, or one instance of a
// result. Values are 32-bit: floats, or unsigned integers (ids and connectivity).
class MRL_API Array {
public:
    // A moved-from Array throws Error (kind 3 "Not Initialized") from everything below.
    Array(const Array&);
    Array(Array&&) noexcept;
    Array& operator=(const Array&);
    Array& operator=(Array&&) noexcept;
    ~Array();

    const std::string& Analysis() const;  // the analysis (group) the array belongs to
    const std::string& Geometry() const;  // the geometry that owns it
    const std::string& Name() const;      // the full data name: result, 0x1E, instance
    const std::string& Result() const;
    const std::string& Instance() const;  // empty when the name has none
    // The Geometries whose elements the array serves: its owner first, then those linking to it.
    const std::vector<std::string>& ElementSets() const;
    std::int32_t Kind() const;
    unsigned Components() const;  // values per item: 3 for coordinates or a vector result
    std::uint64_t Size() const;   // number of values (items times components)
    bool IsFloat() const;         // false for integer arrays

    // Copies values [first, first + count) into out, which must hold count values. A range
    // past Size(), the other form's type, or a payload that can't be read throws Error and
    // writes nothing outside out. The array's payload is decoded directly into out.
    void Read(std::uint64_t first, std::uint64_t count, float* out) const;
    void Read(std::uint64_t first, std::uint64_t count, std::uint32_t* out) const;

    // The library's own: Details is complete only inside it.
    struct Details;
    explicit Array(std::shared_ptr<const Details> details);

private:
    const Details& Get() const;
    std::shared_ptr<const Details> details;
};

// A loaded Zol file. The file stays open while the Model or any of its Arrays lives.
class MRL_API Model {
public:
    // Loads the model, as ZolInfo does; a file ZolInfo would refuse throws Error, and so does
    // anything but a regular file (a FIFO never blocks Open). Failures of the steps that
    // gather the report's facts go to onWarning (if set) and the model opens all the same.
    static Model Open(const std::string& path, const WarningHandler& onWarning = nullptr);

    Model(const Model&);
    Model(Model&&) noexcept;
    Model& operator=(const Model&);
    Model& operator=(Model&&) noexcept;
    ~Model();

    // A moved-from Model throws Error (kind 3 "Not Initialized") from everything below.
    const std::string& Path() const;
    const std::string& Version() const;  // the file version, "1.1" say
    // The metadata report's entries, entry for entry as ZolInfo writes them.
    std::vector<std::pair<std::string, std::string>> Report() const;
    // The same entries in the EKM vocabulary.
    std::vector<std::pair<std::string, std::string>> EkmReport() const;
    const std::vector<Translation>& History() const;
    // Every array of the data dump, in its order. Nothing of their payloads is read before
    // Read, so a damaged payload fails there.
    const std::vector<Array>& Arrays() const;

    // The library's own: Details is complete only inside it.
    struct Details;
    explicit Model(std::shared_ptr<const Details> details);

private:
    const Details& Get() const;
    std::shared_ptr<const Details> details;
};

// The library's version, "1.0.0" say.
MRL_API const char* Version() noexcept;

}  // namespace Mrl

#endif
