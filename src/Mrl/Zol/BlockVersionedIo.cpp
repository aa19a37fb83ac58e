#include "Mrl/Zol/BlockVersionedIo.h"

#include "Mrl/Hbf/Block.h"
#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Util/Exception.h"

namespace MrlHbf {

namespace {

template <class ReadFields>
void ReadVersioned(Block& block, ReadFields&& readFields) {
    uint32_t start = block.GetPosition();
    uint32_t recordSize = 0;
    block.Get(&recordSize, 4);
    std::string version;
    CopyFromBlock(block, version);
    readFields(version);
    uint32_t end = start + recordSize;  // 32-bit arithmetic, as the size field is
    uint32_t at = block.GetPosition();
    if (at < end) {
        block.SetPosition(end);
    } else if (at > end) {
        MRL_THROW(Mrl::Util::Kind::UnknownVersion, nullptr, "Mrl/Zol/BlockVersionedIo",
                  "MrlHbf::CopyFromBlock_Versioned");
    }
}

}  // namespace

void CopyFromBlock_Versioned(Block& block, MrlZol::TranslationRecord& record) {
    ReadVersioned(block, [&](const std::string&) {
        CopyFromBlock(block, record.applicationName);
        CopyFromBlock(block, record.applicationVersion);
        CopyFromBlock(block, record.zolVersion);
        CopyFromBlock(block, record.date);
        CopyFromBlock(block, record.extraText);
        CopyFromBlock(block, record.userName);
        CopyFromBlock(block, record.comment);
    });
}

void CopyFromBlock_Versioned(Block& block, MrlZol::Material& material) {
    ReadVersioned(block, [&](const std::string& version) {
        float ignored = 0;
        block.Get(material.diffuse, 16);
        block.Get(material.specular, 16);
        block.Get(material.emissive, 12);
        block.Get(&ignored, 4);
        block.Get(material.ambient, 12);
        block.Get(&ignored, 4);
        block.Get(&material.shininess, 4);
        if (version == "0.1") return;
        block.Get(&material.ambientFactor, 4);
        if (version == "0.2") return;
        block.Get(&material.materialFlag, 1);
    });
}

}  // namespace MrlHbf

namespace MrlZol {

void CopyFromBlock(MrlHbf::HbFile& file, const std::string& name, Material& material) {
    file.ReadNamed(name,
                   [&](MrlHbf::Block& block) { MrlHbf::CopyFromBlock_Versioned(block, material); });
}

void CopyFromBlock(MrlHbf::HbFile& file, const std::string& name,
                   std::vector<TranslationRecord>& records) {
    file.ReadNamed(name, [&](MrlHbf::Block& block) {
        uint32_t count = 0;
        block.Get(&count, 4);
        if (count == 0) {
            records.clear();
            return;
        }
        // Grown record by record: a count that lies fails on the bytes, not on memory.
        constexpr uint32_t kSmallestRecord = 8;
        records.reserve(std::min<uint64_t>(count, block.Remaining() / kSmallestRecord + 1));
        for (uint32_t i = 0; i < count; ++i) {
            if (i < records.size()) {
                MrlHbf::CopyFromBlock_Versioned(block, records[i]);
            } else {
                TranslationRecord record;
                MrlHbf::CopyFromBlock_Versioned(block, record);
                records.push_back(std::move(record));
            }
        }
        if (records.size() > count) records.resize(count);
    });
}

}  // namespace MrlZol
