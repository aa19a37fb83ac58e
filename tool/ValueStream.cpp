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

void ValueStream::Fill(size_t n) {
    if (n == 0) return;  // no block to load for nothing
    if (window_.size() < n) window_.resize(n);
    record_->ReadRange(next_, n, window_.data());
    next_ += n;
    at_ = 0;
    end_ = n;
}

void ValueStream::Take(size_t n, std::vector<uint32_t>& into) {
    while (n > 0) {
        if (at_ == end_) Refill();
        const size_t step = std::min(n, end_ - at_);
        into.insert(into.end(), window_.data() + at_, window_.data() + at_ + step);
        at_ += step;
        n -= step;
    }
}

bool ReadOutsideMainBlock(const std::vector<MrlZol::ArrayRecord*>& records, size_t limit) {
    std::map<uint64_t, size_t> bytesOfBlock;
    for (const MrlZol::ArrayRecord* record : records) {
        if (record != nullptr) bytesOfBlock[record->BlockEntry()] += record->ByteSize();
    }
    bytesOfBlock.erase(MrlHbf::Index::kNoEntry);
    if (bytesOfBlock.size() < 2) return true;
    auto main = std::max_element(bytesOfBlock.begin(), bytesOfBlock.end(),
                                 [](const auto& a, const auto& b) { return a.second < b.second; });
    size_t outside = 0;
    for (const auto& [entry, bytes] : bytesOfBlock) outside += entry != main->first ? bytes : 0;
    if (outside > limit) return false;
    for (MrlZol::ArrayRecord* record : records) {
        if (record == nullptr) continue;
        uint64_t entry = record->BlockEntry();
        if (entry != MrlHbf::Index::kNoEntry && entry != main->first) record->LoadValues();
    }
    return true;
}

}  // namespace ZolInfo
