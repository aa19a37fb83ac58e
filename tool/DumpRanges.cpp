#include "DumpRanges.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "Mrl/Zol/ValueConversion.h"

namespace ZolInfo {

namespace {

using MrlZol::TruncateToSigned;

// Room a field may take: four blanks and the longest float text; integers take less.
constexpr size_t kFieldBytes = 16;

float AsFloat(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Lines a range takes so that its text fits a slot.
size_t RangeLines(size_t fieldsPerLine) {
    return std::max<size_t>(1, OrderedPool::kTextBytes / (fieldsPerLine * kFieldBytes + 1));
}

}  // namespace

void CoordinateRanges(OrderedPool& pool, ValueStream& ids, ValueStream& xyz, size_t printable) {
    const size_t range = RangeLines(4);
    for (size_t first = 0; first < printable; first += range) {
        const size_t lines = std::min(range, printable - first);
        OrderedPool::Slot& slot = pool.Acquire();
        ids.Take(lines, slot.values);
        xyz.Take(3 * lines, slot.more);
        pool.Submit([lines](OrderedPool::Slot& s) {
            const uint32_t* point = s.more.data();
            for (size_t i = 0; i < lines; ++i, point += 3) {
                s.text.SignedField(TruncateToSigned(AsFloat(s.values[i])), 10);
                for (size_t axis = 0; axis < 3; ++axis) s.text.FloatField(AsFloat(point[axis]), 10);
                s.text.Put('\n');
            }
        });
    }
}

void ConnectivityRanges(OrderedPool& pool, OutputBuffer& out, ValueStream& counts,
                        ValueStream& references, size_t elements, size_t referenceCount) {
    // References a range takes, about, and the most one element may bring to a range: with the
    // lines' own fields the text stays within a slot.
    constexpr uint64_t kReferences = 12 << 10;
    constexpr size_t kLines = 10000;
    uint64_t cursor = 0;
    size_t e = 0;
    while (e < elements) {
        OrderedPool::Slot& slot = pool.Acquire();
        const uint64_t from = std::min<uint64_t>(cursor, referenceCount);
        uint32_t large = 0;
        bool hasLarge = false;
        while (e < elements && slot.values.size() < kLines) {
            const uint32_t n = counts.Next();
            ++e;
            const uint64_t end = std::min<uint64_t>(cursor + n, referenceCount);
            const uint64_t taken = std::min<uint64_t>(cursor, referenceCount);
            if (end - taken > kReferences) {
                large = n;
                hasLarge = true;
                break;
            }
            cursor += n;
            slot.values.push_back(n);
            if (std::min<uint64_t>(cursor, referenceCount) - from >= kReferences) break;
        }
        references.Take(std::min<uint64_t>(cursor, referenceCount) - from, slot.more);
        pool.Submit([](OrderedPool::Slot& s) {
            size_t at = 0;
            for (const uint32_t n : s.values) {
                s.text.UnsignedField(n, 6);
                const size_t end = at + std::min<size_t>(n, s.more.size() - at);
                for (; at < end; ++at) s.text.UnsignedField(s.more[at], 8);
                s.text.Put('\n');
            }
        });
        if (!hasLarge) continue;
        // Its text could pass any slot: written here, in order, a window at a time.
        pool.Drain();
        out.UnsignedField(large, 6);
        const uint64_t end = std::min<uint64_t>(cursor + large, referenceCount);
        for (uint64_t k = cursor; k < end; ++k) out.UnsignedField(references.Next(), 8);
        out.Put('\n');
        cursor += large;
    }
}

void ValueRowRanges(OrderedPool& pool, const std::vector<RowRecord>& records, size_t rows) {
    size_t fields = 0;
    for (const RowRecord& record : records) fields += record.columns;
    const size_t range = RangeLines(std::max<size_t>(fields, 1));
    auto layout = std::make_shared<const std::vector<RowRecord>>(records);
    for (size_t first = 0; first < rows; first += range) {
        const size_t lines = std::min(range, rows - first);
        OrderedPool::Slot& slot = pool.Acquire();
        for (const RowRecord& record : records)
            record.stream->Take(lines * record.perRow, slot.values);
        pool.Submit([lines, layout](OrderedPool::Slot& s) {
            // Each record's values of the range lie together, row after row.
            const uint32_t* base = s.values.data();
            std::vector<const uint32_t*> at;
            at.reserve(layout->size());
            for (const RowRecord& record : *layout) {
                at.push_back(base);
                base += lines * record.perRow;
            }
            for (size_t row = 0; row < lines; ++row) {
                for (size_t k = 0; k < layout->size(); ++k) {
                    const RowRecord& record = (*layout)[k];
                    const uint32_t* values = at[k] + row * record.perRow;
                    for (size_t c = 0; c < record.columns; ++c) {
                        if (record.nodeIds) {
                            s.text.SignedField(record.isFloat ? TruncateToSigned(AsFloat(values[0]))
                                                              : static_cast<int32_t>(values[0]),
                                               10);
                        } else if (record.isFloat) {
                            s.text.FloatField(AsFloat(values[c]), 10);
                        } else {
                            s.text.UnsignedField(values[c], 10);
                        }
                    }
                }
                s.text.Put('\n');
            }
        });
    }
}

}  // namespace ZolInfo
