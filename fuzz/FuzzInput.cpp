#include "FuzzInput.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

std::string MakeScratchDirectory(const char* prefix) {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : "/tmp/";
    pattern += prefix;
    pattern += "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    return pattern;
}

void WriteInput(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) std::abort();
    bool ok = size == 0 || std::fwrite(data, 1, size, file) == size;
    if (std::fclose(file) != 0 || !ok) std::abort();
}
