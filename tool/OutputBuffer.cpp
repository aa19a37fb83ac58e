#include "OutputBuffer.h"

#include <algorithm>
#include <cstring>
#include <ostream>

#include "NumberFormat.h"

namespace ZolInfo {

namespace {

constexpr size_t kFieldLead = 4;
// Below this a buffer would flush on almost every field.
constexpr size_t kMinCapacity = 64;

}  // namespace

OutputBuffer::OutputBuffer(std::ostream& os, size_t capacity)
    : os_(os),
      capacity_(std::max(capacity, kMinCapacity)),
      data_(std::make_unique_for_overwrite<char[]>(capacity_)) {}

OutputBuffer::~OutputBuffer() {
    // A stream with exceptions enabled may throw from write; a destructor must not pass that on.
    try {
        Flush();
    } catch (...) {
    }
}

void OutputBuffer::Flush() {
    if (used_ == 0) return;
    const size_t pending = used_;
    // Cleared first, so that a write that throws is not repeated by the destructor.
    used_ = 0;
    os_.write(data_.get(), static_cast<std::streamsize>(pending));
}

void OutputBuffer::Put(std::string_view s) {
    if (s.size() > capacity_ - used_) {
        Flush();
        // A text larger than the whole buffer gains nothing from being copied in pieces.
        if (s.size() >= capacity_) {
            os_.write(s.data(), static_cast<std::streamsize>(s.size()));
            return;
        }
    }
    std::memcpy(data_.get() + used_, s.data(), s.size());
    used_ += s.size();
}

void OutputBuffer::Put(char c) {
    if (used_ == capacity_) Flush();
    data_[used_++] = c;
}

void OutputBuffer::Line(std::string_view s) {
    Put(s);
    Put('\n');
}

void OutputBuffer::FloatField(float v, int width) {
    char text[kNumberTextMax];
    Field(text, static_cast<size_t>(FormatFloat(text, v) - text), width);
}

void OutputBuffer::SignedField(int64_t v, int width) {
    char text[kNumberTextMax];
    Field(text, static_cast<size_t>(FormatSigned(text, v) - text), width);
}

void OutputBuffer::UnsignedField(uint64_t v, int width) {
    char text[kNumberTextMax];
    Field(text, static_cast<size_t>(FormatUnsigned(text, v) - text), width);
}

void OutputBuffer::Field(const char* text, size_t length, int width) {
    // A width of zero or below pads nothing, as with setw.
    const size_t columns = width > 0 ? static_cast<size_t>(width) : 0;
    const size_t blanks = kFieldLead + (columns > length ? columns - length : 0);
    const size_t total = blanks + length;
    if (total > capacity_ - used_) {
        Flush();
        if (total > capacity_) {
            // Only a width near the capacity gets here; the hot path stays a single copy.
            PutBlanks(blanks);
            Put(std::string_view(text, length));
            return;
        }
    }
    char* at = data_.get() + used_;
    std::memset(at, ' ', blanks);
    std::memcpy(at + blanks, text, length);
    used_ += total;
}

void OutputBuffer::PutBlanks(size_t count) {
    while (count > 0) {
        if (used_ == capacity_) Flush();
        const size_t step = std::min(count, capacity_ - used_);
        std::memset(data_.get() + used_, ' ', step);
        used_ += step;
        count -= step;
    }
}

}  // namespace ZolInfo
