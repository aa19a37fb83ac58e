#pragma once
// A stream buffer like that of a file whose writes go nowhere: only their bytes are counted, so
// that a benchmark times the making of text and not a device.
#include <algorithm>
#include <cstdint>
#include <streambuf>
#include <vector>

class CountingSink : public std::streambuf {
public:
    CountingSink() : area_(1 << 16) { Reset(); }
    uint64_t Bytes() const { return counted_ + static_cast<uint64_t>(pptr() - pbase()); }

protected:
    int_type overflow(int_type c) override {
        counted_ += static_cast<uint64_t>(pptr() - pbase());
        Reset();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        if (n > epptr() - pptr()) {
            counted_ += static_cast<uint64_t>(pptr() - pbase()) + static_cast<uint64_t>(n);
            Reset();
            return n;
        }
        std::copy(s, s + n, pptr());
        pbump(static_cast<int>(n));
        return n;
    }

private:
    void Reset() { setp(area_.data(), area_.data() + area_.size()); }
    std::vector<char> area_;
    uint64_t counted_ = 0;
};
