#include <algorithm>

#include "Details.h"
#include "Mrl/Util/Exception.h"
#include "Mrl/Zol/DataLoader.h"

namespace Mrl {

namespace {

std::string Where(const MrlZol::ArrayRecord& record) {
    return "array \"" + record.itemName + "\" of \"" + record.geometryName + "\"";
}

// Values [first, first + count) into out; every check comes before the first byte is written.
void ReadValues(const Array::Details& array, std::uint64_t first, std::uint64_t count,
                std::uint32_t* out, bool asFloat) {
    const MrlZol::ArrayRecord& record = array.record;
    const std::string& path = array.file->path;
    if (record.isFloat != asFloat) {
        throw Error(Util::Kind::BadCasting, path,
                    record.isFloat ? "The array holds floats, not unsigned integers"
                                   : "The array holds unsigned integers, not floats",
                    array.where);
    }
    std::uint64_t size = record.count;
    if (first > size || count > size - first) {
        throw Error(Util::Kind::OutOfBounds, path,
                    "Values " + std::to_string(first) + " to " + std::to_string(first + count) +
                        " are past the array's " + std::to_string(size),
                    array.where);
    }
    if (count == 0) return;
    std::lock_guard<std::mutex> lock(array.file->mutex);
    Guarded(path, array.where, [&] {
        // The record's range read keeps one block of the name in memory at a time and takes
        // at most 2^32 - 1 values a call.
        constexpr std::uint64_t kStep = std::uint64_t{1} << 30;
        for (std::uint64_t done = 0; done < count; done += kStep) {
            record.ReadRange(first + done, std::min(kStep, count - done), out + done);
        }
    });
}

}  // namespace

Array MakeArray(std::shared_ptr<OpenFile> file, MrlZol::ArrayRecord record) {
    auto details = std::make_shared<Array::Details>();
    details->file = std::move(file);
    if (record.loader) details->components = std::max<unsigned>(record.loader->components, 1);
    // Without a loader an array has no values, whatever its record says.
    if (!record.loader) record.count = 0;
    details->where = Where(record);
    details->record = std::move(record);
    return Array(std::move(details));
}

Array::Array(std::shared_ptr<const Details> details) : details(std::move(details)) {}
Array::Array(const Array&) = default;
Array::Array(Array&&) noexcept = default;
Array& Array::operator=(const Array&) = default;
Array& Array::operator=(Array&&) noexcept = default;
Array::~Array() = default;

const Array::Details& Array::Get() const {
    if (!details) throw Error(Util::Kind::NotInitialized, std::string(), "Array was moved from");
    return *details;
}

const std::string& Array::Analysis() const {
    return Get().record.analysis;
}

const std::string& Array::Geometry() const {
    return Get().record.geometryName;
}

const std::string& Array::Name() const {
    return Get().record.itemName;
}

const std::string& Array::Result() const {
    return Get().record.resultName;
}

const std::string& Array::Instance() const {
    return Get().record.instanceName;
}

const std::vector<std::string>& Array::ElementSets() const {
    return Get().record.elementSets;
}

std::int32_t Array::Kind() const {
    return Get().record.kind;
}

unsigned Array::Components() const {
    return Get().components;
}

std::uint64_t Array::Size() const {
    return Get().record.count;
}

bool Array::IsFloat() const {
    return Get().record.isFloat;
}

void Array::Read(std::uint64_t first, std::uint64_t count, float* out) const {
    // The decoder writes 32-bit patterns through a type that may alias floats.
    ReadValues(Get(), first, count, reinterpret_cast<std::uint32_t*>(out), true);
}

void Array::Read(std::uint64_t first, std::uint64_t count, std::uint32_t* out) const {
    ReadValues(Get(), first, count, out, false);
}

}  // namespace Mrl
