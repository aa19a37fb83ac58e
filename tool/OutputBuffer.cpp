#include "OutputBuffer.h"

#include <algorithm>
#include <cstring>
#include <ostream>

namespace ZolInfo {

namespace {

// Below this a buffer would flush on almost every field.
constexpr size_t kMinCapacity = 64;

}  // namespace

OutputBuffer::OutputBuffer(std::ostream& os, size_t capacity)
    : os_(os),
      capacity_(std::max(capacity, kMinCapacity)),
      data_(std::make_unique_for_overwrite<char[]>(capacity_ + kSlack)),
      cursor_(data_.get()),
      end_(data_.get() + capacity_) {}

OutputBuffer::~OutputBuffer() {
    // A stream with exceptions enabled may throw from write; a destructor must not pass that on.
    try {
        Flush();
    } catch (...) {
    }
}

void OutputBuffer::Flush() {
    if (cursor_ == data_.get()) return;
    const auto pending = static_cast<std::streamsize>(cursor_ - data_.get());
    // Cleared first, so that a write that throws is not repeated by the destructor.
    cursor_ = data_.get();
    os_.write(data_.get(), pending);
}

void OutputBuffer::Put(std::string_view s) {
    if (s.size() > static_cast<size_t>(end_ - cursor_)) {
        Flush();
        // A text larger than the whole buffer gains nothing from being copied in pieces.
        if (s.size() >= capacity_) {
            os_.write(s.data(), static_cast<std::streamsize>(s.size()));
            return;
        }
    }
    std::memcpy(cursor_, s.data(), s.size());
    cursor_ += s.size();
}

void OutputBuffer::Splice(std::string_view s) {
    // Below this a copy costs less than a write of its own.
    constexpr size_t kCopiedMax = 64 << 10;
    if (s.size() <= kCopiedMax) return Put(s);
    Flush();
    os_.write(s.data(), static_cast<std::streamsize>(s.size()));
}

void OutputBuffer::Line(std::string_view s) {
    Put(s);
    Put('\n');
}

void OutputBuffer::WideFloatField(float v, int width) {
    char text[kNumberTextMax];
    Field(text, static_cast<size_t>(FormatFloat(text, v) - text), width);
}

void OutputBuffer::Field(uint64_t magnitude, bool negative, int digits, int width) {
    char text[kNumberTextMax];
    char* end = text + digits + (negative ? 1 : 0);
    char* start = WriteDigitsBefore(end, magnitude);
    if (negative) start[-1] = '-';
    Field(text, static_cast<size_t>(end - text), width);
}

void OutputBuffer::Field(const char* text, size_t length, int width) {
    // A width of zero or below pads nothing, as with setw.
    const size_t columns = width > 0 ? static_cast<size_t>(width) : 0;
    PutBlanks(kFieldLead + (columns > length ? columns - length : 0));
    Put(std::string_view(text, length));
}

void OutputBuffer::PutBlanks(size_t count) {
    while (count > 0) {
        if (cursor_ >= end_) Flush();
        const size_t step = std::min(count, static_cast<size_t>(end_ - cursor_));
        std::memset(cursor_, ' ', step);
        cursor_ += step;
        count -= step;
    }
}

}  // namespace ZolInfo
