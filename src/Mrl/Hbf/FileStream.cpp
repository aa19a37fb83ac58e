#include "Mrl/Hbf/FileStream.h"

#include <sys/stat.h>

namespace MrlHbf {

bool FileStream::Open(const std::string& path, const char* mode) {
    std::FILE* opened = std::fopen(path.c_str(), mode);
    if (opened == nullptr) return false;
    struct stat status {};
    if (fstat(fileno(opened), &status) != 0 || !S_ISREG(status.st_mode)) {
        // A directory or a device is no block file; treat it as unopenable.
        std::fclose(opened);
        return false;
    }
    file = opened;
    size = static_cast<uint64_t>(status.st_size);
    return true;
}

void FileStream::Close() {
    if (file == nullptr) return;
    std::fclose(file);
    file = nullptr;
    size = 0;
}

bool FileStream::Seek(uint64_t offset) {
    if (file == nullptr || offset > static_cast<uint64_t>(INT64_MAX)) return false;
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
}

uint64_t FileStream::Tell() const {
    if (file == nullptr) return 0;
    off_t at = ftello(file);
    return at < 0 ? 0 : static_cast<uint64_t>(at);
}

uint64_t FileStream::Remaining() const {
    uint64_t at = Tell();
    return at >= size ? 0 : size - at;
}

size_t FileStream::Read(void* destination, size_t count) {
    if (file == nullptr) return 0;
    return std::fread(destination, 1, count, file);
}

}  // namespace MrlHbf
