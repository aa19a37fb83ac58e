#pragma once
// The float text as the tool made it before its formatter took one multiply per value, kept
// unchanged so that float_format_exhaustive times today's formatter against a fixed baseline.
// Nothing but that benchmark uses it.
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>

namespace OldFloatFormat {

constexpr size_t kTextMax = 32;

struct Parts {
    enum Kind : uint8_t { kWhole, kDigits, kText };
    Kind kind;
    bool negative;
    int8_t exponent;
    int8_t last;
    uint8_t length;
    uint64_t word;
    char text[kTextMax];
};
Parts Split(float v);
char* Write(char* out, const Parts& parts);
char* Format(char* out, float v);

// The dump's field as OutputBuffer wrote it then: four blanks, the text right-aligned in `width`
// columns, into a buffer of 1 MiB handed to the stream in one write.
class FieldBuffer {
public:
    explicit FieldBuffer(std::ostream& os);
    ~FieldBuffer();
    void FloatField(float v, int width);
    void Flush();

private:
    std::ostream& os_;
    std::unique_ptr<char[]> data_;
    char* cursor_;
    char* end_;
};

}  // namespace OldFloatFormat
