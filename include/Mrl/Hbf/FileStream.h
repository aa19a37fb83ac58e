#pragma once
#include <cstdint>
#include <cstdio>
#include <string>

namespace MrlHbf {

// A read-only C stream with 64-bit seek and tell. It knows the file's size so that a read
// that cannot be satisfied is refused before any memory is set aside for it.
class FileStream {
public:
    FileStream() = default;
    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;
    ~FileStream() { Close(); }

    bool Open(const std::string& path, const char* mode);
    void Close();
    bool IsOpen() const { return file != nullptr; }

    bool Seek(uint64_t offset);
    uint64_t Tell() const;
    // Bytes from the current offset to the end of the file; 0 past the end.
    uint64_t Remaining() const;
    size_t Read(void* destination, size_t count);
    bool AtEnd() const { return file != nullptr && std::feof(file) != 0; }

private:
    std::FILE* file = nullptr;
    uint64_t size = 0;
};

}  // namespace MrlHbf
