#include "ValueStream.h"

#include <algorithm>
#include <map>

#include "Mrl/Hbf/Index.h"

namespace ZolInfo {

ValueStream::ValueStream(const MrlZol::ArrayRecord* record) : record_(record) {
    if (record_ != nullptr && record_->Size() != 0) {
        window_.resize(std::min(kWindow, record_->Size()));
    }
}

void ValueStream::Refill() {
    size_t n = std::min(window_.size(), record_->Size() - next_);
    record_->ReadRange(next_, n, window_.data());
    next_ += n;
    at_ = 0;
    end_ = n;
}

void ReadOutsideMainBlock(const std::vector<MrlZol::ArrayRecord*>& records) {
    std::map<uint64_t, size_t> bytesOfBlock;
    for (const MrlZol::ArrayRecord* record : records) {
        if (record != nullptr) bytesOfBlock[record->BlockEntry()] += record->ByteSize();
    }
    bytesOfBlock.erase(MrlHbf::Index::kNoEntry);
    if (bytesOfBlock.size() < 2) return;
    auto main = std::max_element(bytesOfBlock.begin(), bytesOfBlock.end(),
                                 [](const auto& a, const auto& b) { return a.second < b.second; });
    for (MrlZol::ArrayRecord* record : records) {
        if (record == nullptr) continue;
        uint64_t entry = record->BlockEntry();
        if (entry != MrlHbf::Index::kNoEntry && entry != main->first) record->LoadValues();
    }
}

}  // namespace ZolInfo
