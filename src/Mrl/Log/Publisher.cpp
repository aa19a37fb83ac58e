#include "Mrl/Log/Publisher.h"

namespace Mrl::Log {

FilePublisher::FilePublisher(const std::string& path)
    : stream(path, std::ios::out | std::ios::trunc) {}

void FilePublisher::Publish(const char* text) {
    stream << text;
}

void FilePublisher::Flush() {
    stream.flush();
}

}  // namespace Mrl::Log
