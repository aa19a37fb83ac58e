#pragma once
// The one way output leaves the tool: text is gathered in a single reused buffer and handed to
// the stream in large writes. The dump prints many millions of short fields, and going through
// the stream's own formatting and sentry for each of them costs far more than the numbers do.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <memory>
#include <string_view>

#include "NumberFormat.h"

namespace ZolInfo {

class OutputBuffer {
public:
    // The buffer is allocated once, here; nothing is allocated per value later.
    explicit OutputBuffer(std::ostream& os, size_t capacity = 1 << 20);
    // Hands what is pending to the stream. A failing stream is left with its state set.
    ~OutputBuffer();

    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    void Put(std::string_view s);
    void Put(char c) {
        if (cursor_ >= end_) Flush();
        *cursor_++ = c;
    }
    // s and a line feed.
    void Line(std::string_view s);

    // One dump field: four blanks, then the number right-aligned in `width` columns, padded with
    // blanks on the left. A number longer than the width is written whole. The text equals
    // `os << "    " << std::setw(width) << v` on a stream with default settings.
    void FloatField(float v, int width) {
        if (width < 0 || width > kInPlaceWidth) return WideFloatField(v, width);
        if (cursor_ >= end_) Flush();
        std::memcpy(cursor_, "                ", 16);
        char* const field = cursor_ + kFieldLead;
        char* const end = WriteFloat(field, v, width);
        cursor_ = end > field + width ? end : field + width;
    }
    void SignedField(int64_t v, int width) {
        const bool negative = v < 0;
        const uint64_t magnitude =
            negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
        DigitsField(magnitude, negative, width);
    }
    void UnsignedField(uint64_t v, int width) { DigitsField(v, false, width); }

    // Writes the pending bytes with one os.write. It does not flush the stream itself.
    void Flush();

    // For a buffer that gathers one piece of text to be handed on elsewhere: what is pending,
    // and dropping it.
    std::string_view Pending() const {
        return {data_.get(), static_cast<size_t>(cursor_ - data_.get())};
    }
    void Discard() { cursor_ = data_.get(); }
    // Text made elsewhere, after what is pending: copied when small, else written as it is.
    void Splice(std::string_view s);

private:
    // Fields up to this width are written in place: blanks with one 16-byte store, the number
    // at its final column. Scratch bytes past a field stay inside the slack behind the capacity.
    static constexpr int kInPlaceWidth = 12;
    static constexpr size_t kSlack = 64;
    static constexpr size_t kFieldLead = 4;

    void DigitsField(uint64_t magnitude, bool negative, int width) {
        const int digits = DigitCount(magnitude);
        if (width < 0 || width > kInPlaceWidth) return Field(magnitude, negative, digits, width);
        if (cursor_ >= end_) Flush();
        std::memcpy(cursor_, "                ", 16);
        const int length = digits + (negative ? 1 : 0);
        char* end = cursor_ + kFieldLead + (length > width ? length : width);
        char* start = WriteDigitsBefore(end, magnitude);
        if (negative) start[-1] = '-';
        cursor_ = end;
    }
    void Field(uint64_t magnitude, bool negative, int digits, int width);
    void Field(const char* text, size_t length, int width);
    void WideFloatField(float v, int width);
    void PutBlanks(size_t count);

    std::ostream& os_;
    size_t capacity_;
    std::unique_ptr<char[]> data_;
    char* cursor_;
    char* end_;  // data_ + capacity_; a field may start below it and run into the slack
};

}  // namespace ZolInfo
