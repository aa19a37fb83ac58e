#pragma once
// The one way output leaves the tool: text is gathered in a single reused buffer and handed to
// the stream in large writes. The dump prints many millions of short fields, and going through
// the stream's own formatting and sentry for each of them costs far more than the numbers do.
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string_view>

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
    void Put(char c);
    // s and a line feed.
    void Line(std::string_view s);

    // One dump field: four blanks, then the number right-aligned in `width` columns, padded with
    // blanks on the left. A number longer than the width is written whole. The text equals
    // `os << "    " << std::setw(width) << v` on a stream with default settings.
    void FloatField(float v, int width);
    void SignedField(int64_t v, int width);
    void UnsignedField(uint64_t v, int width);

    // Writes the pending bytes with one os.write. It does not flush the stream itself.
    void Flush();

private:
    void Field(const char* text, size_t length, int width);
    void PutBlanks(size_t count);

    std::ostream& os_;
    size_t capacity_;
    std::unique_ptr<char[]> data_;
    size_t used_ = 0;
};

}  // namespace ZolInfo
