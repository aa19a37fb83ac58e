#include "Mrl/Hbf/HbFile.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace MrlHbf {

using Mrl::Util::Kind;

namespace {
constexpr const char* kSource = "Mrl/Hbf/HbFile";

uint32_t Tenths(const std::string& version) {
    // atof, narrowed to float and widened back, as versions have always been compared.
    double value = static_cast<double>(static_cast<float>(std::atof(version.c_str())));
    double scaled = (value + 0.001) * 10.0;
    // Truncate through 64 bits and keep the low 32, so that a negative or absurd text
    // becomes a large number of tenths and is refused rather than misread.
    int64_t whole = std::isfinite(scaled) && std::fabs(scaled) < 9.0e18
                        ? static_cast<int64_t>(scaled)
                        : INT64_MIN;
    return static_cast<uint32_t>(whole);
}
}  // namespace

HbFile::~HbFile() {
    HbFile::CloseFile();
}

void HbFile::CloseFile() {
    MRL_LOG(1000, "Closing file ...", kSource, "MrlHbf::HbFile::CloseFile");
    if (!stream.IsOpen()) return;
    stream.Close();
    MRL_LOG(1000, "File closed.", kSource, "MrlHbf::HbFile::CloseFile");
}

void HbFile::OpenFile(const std::string& path, const char* mode) {
    constexpr const char* kMethod = "MrlHbf::HbFile::OpenFile";
    if (stream.IsOpen()) {
        MRL_THROW(Kind::MiscelleneousError, "File stream is already in use", kSource, kMethod);
    }
    if (!stream.Open(path, mode)) {
        std::string text = "Unable to open file \"" + path + "\"";
        MRL_THROW(Kind::MiscelleneousError, text.c_str(), kSource, kMethod);
    }
}

bool HbFile::CheckMagic() {
    uint8_t head[8] = {};
    if (!stream.Seek(0) || stream.Read(head, 8) != 8) return false;
    return std::memcmp(head, kMagic, 8) == 0;
}

std::string HbFile::GetFileVersion() {
    char text[4] = {};
    if (stream.Seek(8)) stream.Read(text, 4);
    return std::string(text, strnlen(text, 4));
}

void HbFile::CheckSupport(const std::string& version, bool& wideOffsets) {
    uint32_t fileTenths = Tenths(version);
    uint32_t supportedTenths = Tenths("1.1");
    wideOffsets = fileTenths > 6;
    if (fileTenths <= supportedTenths) return;
    std::string text = "This file is of zol file version " + std::to_string(fileTenths) +
                       ".\nThis version of Morlane only supports zol file version upto " +
                       std::to_string(supportedTenths) + ".\n";
    MRL_THROW(Kind::UnknownVersion, text.c_str(), kSource, "MrlHbf::HbFile::CheckSupport");
}

void HbFile::ReadIndex() {
    constexpr const char* kMethod = "MrlHbf::HbFile::ReadIndex";
    MRL_LOG(1000, "Reading index positions ... ", kSource, kMethod);
    uint32_t size = 0;
    stream.Seek(12);
    Block header;
    header.Read(stream, 4);
    header.SetPosition(uint32_t{0});
    header.Get(&size, 4);
    index.ReadIndexBufferFromFileStream(stream, size);
    MRL_LOG(1000, "Index read. ", kSource, kMethod);
}

void HbFile::CopyFromBlock(const std::string& name, void* destination, uint32_t count) {
    ReadNamed(
        name, [&](Block& block) { block.Get(destination, count); }, true);
}

void HbFile::CopyFromBlock(const std::string& name, std::string& value) {
    ReadNamed(name, [&](Block& block) { MrlHbf::CopyFromBlock(block, value); });
}

void HbFile::CopyFromBlock(const std::string& name, std::vector<std::string>& values) {
    ReadNamed(name, [&](Block& block) { MrlHbf::CopyFromBlock(block, values); });
}

}  // namespace MrlHbf
