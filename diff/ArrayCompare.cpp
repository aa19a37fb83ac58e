#include "diff/ArrayCompare.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <future>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace ZolDiff {

namespace {

// Values read per model at a time; the buffers stay below 32 MiB together.
constexpr uint64_t kChunk = uint64_t{1} << 20;

// Counts the pairs and keeps the largest and the first differences. Only positions are kept
// while the values stream; ids and components are looked up once at the end.
template <class T>
class Recorder {
public:
    Recorder(const Tolerance& tolerance, uint64_t maxReport, ArrayDiff& diff)
        : tolerance_(tolerance), maxReport_(maxReport), diff_(diff) {}

    // A range of pairs, A's first value at `index`. Equal ranges are passed over at memory
    // speed; in others, pairs of finite floats take a short path without branches to other
    // functions, since a model of a new run may differ a little in every value.
    void Range(uint64_t index, const T* a, const T* b, uint64_t count) {
        diff_.compared += count;
        // An empty range may come with the null data of an empty buffer.
        if (count == 0 || std::memcmp(a, b, count * sizeof(T)) == 0) return;
        if constexpr (std::is_same_v<T, float>) {
            for (uint64_t start = 0; start < count; start += kBlock) {
                const uint64_t n = std::min(kBlock, count - start);
                if (!Quiet(a + start, b + start, n)) Pairs(index + start, a + start, b + start, n);
            }
        } else {
            Pairs(index, a, b, count);
        }
    }

    // Values of an item that the other model's item lacks.
    void Unpaired(uint64_t count) { diff_.unpaired += count; }

    // Adds the ids and components of the positions kept.
    void Finish(const Plan& plan) {
        auto place = [&](ValueDiff& value) {
            const uint64_t item = plan.itemsA.ItemOf(value.index);
            value.component = value.index - plan.itemsA.Begin(item);
            if (plan.ids != nullptr) value.id = plan.ids->IdOf(item);
        };
        if (diff_.maxAbs) place(*diff_.maxAbs);
        if (diff_.maxRel) place(*diff_.maxRel);
        for (ValueDiff& value : diff_.first) place(value);
    }

private:
    // Floats are looked at in blocks; most blocks of a new run's model differ in every value but
    // hold no new largest difference and no pair out of tolerance.
    static constexpr uint64_t kBlock = 256;

    // True when every pair of the block is a pair of finite floats within tolerance and none
    // is a new largest difference. Without branches, so that it runs on vectors.
    bool Quiet(const float* a, const float* b, uint64_t n) const {
        const double largestAbs = largestAbs_, largestRel = largestRel_;
        const double atol = tolerance_.atol, rtol = tolerance_.rtol;
        int loud = 0;
        for (uint64_t k = 0; k < n; ++k) {
            const double x = a[k], y = b[k];
            const double apart = std::fabs(x - y);
            const double scale = std::max(std::fabs(x), std::fabs(y));
            // A NaN or an infinity fails the first test.
            loud |= static_cast<int>(!(apart <= std::numeric_limits<double>::max())) |
                    static_cast<int>(apart > largestAbs) |
                    static_cast<int>(apart > largestRel * scale) |
                    static_cast<int>(apart > std::max(atol, rtol * scale));
        }
        return loud == 0;
    }

    // Every pair of a range, one at a time.
    void Pairs(uint64_t index, const T* a, const T* b, uint64_t count) {
        for (uint64_t k = 0; k < count; ++k) {
            if (a[k] == b[k]) continue;
            if constexpr (std::is_same_v<T, float>) {
                const double x = a[k], y = b[k];
                const double apart = std::fabs(x - y);
                const double scale = std::max(std::fabs(x), std::fabs(y));
                // Both finite (a NaN or an infinity fails this), and not both zero.
                if (apart <= std::numeric_limits<double>::max()) {
                    if (apart > largestAbs_) {
                        Largest(diff_.maxAbs, largestAbs_, apart, index + k, x, y);
                    }
                    if (apart > largestRel_ * scale) {
                        Largest(diff_.maxRel, largestRel_, apart / scale, index + k, x, y);
                    }
                    if (apart <= std::max(tolerance_.atol, tolerance_.rtol * scale)) continue;
                    if (tolerance_.ulps != 0 && UlpDistance(a[k], b[k]) <= tolerance_.ulps) {
                        continue;
                    }
                    Differing(index + k, x, y, apart, apart / scale);
                    continue;
                }
            }
            Pair(index + k, a[k], b[k]);
        }
    }

    // A new largest difference: `measure` is its absolute or its relative difference.
    void Largest(std::optional<ValueDiff>& slot, double& largest, double measure, uint64_t index,
                 double a, double b) {
        largest = measure;
        const double apart = std::fabs(a - b);
        slot = ValueDiff{index, std::nullopt, 0, a, b, apart, RelativeDifference(a, b)};
    }

    void Differing(uint64_t index, double a, double b, double apart, double relative) {
        ++diff_.differing;
        if (diff_.first.size() < maxReport_) {
            diff_.first.push_back(ValueDiff{index, std::nullopt, 0, a, b, apart, relative});
        }
    }

    // Any pair of integers, and floats that are not both finite.
    void Pair(uint64_t index, T a, T b) {
        const double x = a, y = b;
        double apart = 0, relative = 0;
        bool passes = false;
        if constexpr (std::is_same_v<T, float>) {
            passes = Passes(a, b, tolerance_);
            if (!(std::isnan(a) && std::isnan(b))) {
                apart = std::isfinite(a) && std::isfinite(b) ? std::fabs(x - y) : INFINITY;
                relative = RelativeDifference(x, y);
            }
        } else {
            apart = std::fabs(x - y);
            relative = RelativeDifference(x, y);
        }
        if (!diff_.maxAbs || apart > largestAbs_)
            Largest(diff_.maxAbs, largestAbs_, apart, index, x, y);
        if (!diff_.maxRel || relative > largestRel_) {
            Largest(diff_.maxRel, largestRel_, relative, index, x, y);
        }
        if (!passes) Differing(index, x, y, apart, relative);
    }

    Tolerance tolerance_;
    uint64_t maxReport_;
    ArrayDiff& diff_;
    double largestAbs_ = -1, largestRel_ = -1;  // of diff_.maxAbs and diff_.maxRel
};

// Runs readA here and readB on another thread: the two models are separate files, so their
// blocks inflate at the same time. The first failure is rethrown once both have ended.
template <class ReadA, class ReadB>
void ReadBoth(ReadA&& readA, ReadB&& readB) {
    std::future<void> other = std::async(std::launch::async, std::forward<ReadB>(readB));
    try {
        readA();
    } catch (...) {
        other.wait();
        throw;
    }
    other.get();
}

// Pairs value by value, over the values both arrays have.
template <class T>
void ComparePositions(const Mrl::Array& a, const Mrl::Array& b, Recorder<T>& recorder,
                      Scratch::Values<T>& buffers) {
    const uint64_t size = std::min(a.Size(), b.Size());
    std::vector<T>& bufA = buffers.a;
    std::vector<T>& bufB = buffers.b;
    // The buffers are shared with the pairing by items, which sizes them apart.
    const uint64_t need = std::min(size, kChunk);
    if (bufA.size() < need) bufA.resize(need);
    if (bufB.size() < need) bufB.resize(need);
    for (uint64_t first = 0; first < size; first += kChunk) {
        const uint64_t count = std::min(kChunk, size - first);
        ReadBoth([&] { a.Read(first, count, bufA.data()); },
                 [&] { b.Read(first, count, bufB.data()); });
        recorder.Range(first, bufA.data(), bufB.data(), count);
    }
}

// Pairs item by item, B's items gathered into A's order a range of A's items at a time.
template <class T>
class ItemPairing {
public:
    ItemPairing(const Mrl::Array& a, const Mrl::Array& b, const Plan& plan, Recorder<T>& recorder,
                Scratch& scratch)
        : a_(a),
          b_(b),
          plan_(plan),
          recorder_(recorder),
          bufA_(scratch.For<T>().a),
          bufB_(scratch.For<T>().b),
          run_(scratch.For<T>().run),
          placed_(scratch.placed),
          order_(scratch.order) {}

    void Run() {
        for (uint64_t i = 0; i < plan_.itemsA.count;) i = Chunk(i);
    }

private:
    uint32_t Partner(uint64_t i) const {
        const uint64_t j = plan_.toB != nullptr ? (*plan_.toB)[i] : i;
        return j < plan_.itemsB.count ? static_cast<uint32_t>(j) : kNoItem;
    }
    uint64_t LengthB(uint32_t j) const {
        return j == kNoItem ? 0 : plan_.itemsB.End(j) - plan_.itemsB.Begin(j);
    }

    // Compares the items from i on that fit in a chunk; returns the first item after them.
    uint64_t Chunk(uint64_t i) {
        const Items& items = plan_.itemsA;
        const uint64_t begin = items.Begin(i);
        uint64_t end = i, gathered = 0;
        placed_.clear();
        while (end < items.count && (end == i || (items.End(end) - begin <= kChunk &&
                                                  gathered + LengthB(Partner(end)) <= kChunk))) {
            placed_.push_back(gathered);
            gathered += LengthB(Partner(end));
            ++end;
        }
        placed_.push_back(gathered);
        bufA_.resize(items.End(end - 1) - begin);
        ReadBoth([&] { a_.Read(begin, bufA_.size(), bufA_.data()); },
                 [&] { Gather(i, end, gathered); });
        for (uint64_t k = i; k < end; ++k) {
            const uint64_t lengthA = items.End(k) - items.Begin(k);
            const uint64_t lengthB = placed_[k - i + 1] - placed_[k - i];
            const uint64_t common = std::min(lengthA, lengthB);
            recorder_.Range(items.Begin(k), bufA_.data() + (items.Begin(k) - begin),
                            bufB_.data() + placed_[k - i], common);
            recorder_.Unpaired(Partner(k) == kNoItem ? 0 : std::max(lengthA, lengthB) - common);
        }
        return end;
    }

    // Reads B's partners of items [i, end) into bufB_, each at its place; runs of partners
    // that follow each other in B are read at once.
    void Gather(uint64_t i, uint64_t end, uint64_t gathered) {
        bufB_.resize(gathered);
        order_.clear();
        for (uint64_t k = i; k < end; ++k) {
            if (Partner(k) != kNoItem) order_.push_back(k);
        }
        if (!std::is_sorted(order_.begin(), order_.end(),
                            [&](uint64_t x, uint64_t y) { return Partner(x) < Partner(y); })) {
            std::sort(order_.begin(), order_.end(),
                      [&](uint64_t x, uint64_t y) { return Partner(x) < Partner(y); });
        }
        const Items& items = plan_.itemsB;
        for (size_t r = 0; r < order_.size();) {
            size_t last = r;
            bool inPlace = true;  // the run's places in bufB_ follow each other too
            while (last + 1 < order_.size() &&
                   Partner(order_[last + 1]) == Partner(order_[last]) + 1) {
                inPlace = inPlace && order_[last + 1] == order_[last] + 1;
                ++last;
            }
            const uint64_t from = items.Begin(Partner(order_[r]));
            const uint64_t count = items.End(Partner(order_[last])) - from;
            if (inPlace) {
                b_.Read(from, count, bufB_.data() + placed_[order_[r] - i]);
            } else {
                run_.resize(count);
                b_.Read(from, count, run_.data());
                for (size_t s = r; s <= last; ++s) {
                    const uint32_t j = Partner(order_[s]);
                    std::copy_n(run_.data() + (items.Begin(j) - from), LengthB(j),
                                bufB_.data() + placed_[order_[s] - i]);
                }
            }
            r = last + 1;
        }
    }

    const Mrl::Array& a_;
    const Mrl::Array& b_;
    const Plan& plan_;
    Recorder<T>& recorder_;
    std::vector<T>&bufA_, &bufB_, &run_;
    std::vector<uint64_t>& placed_;  // where each item's partner starts in bufB_
    std::vector<uint64_t>& order_;   // the items with partners, in B's order
};

// Items too long for a chunk are compared by position: only a damaged model has them.
bool ItemsFit(const Items& items) {
    if (!items.offsets) return items.width <= kChunk;
    for (uint64_t i = 0; i < items.count; ++i) {
        if (items.End(i) - items.Begin(i) > kChunk) return false;
    }
    return true;
}

template <class T>
void CompareAs(const Mrl::Array& a, const Mrl::Array& b, const Plan& plan,
               const Tolerance& tolerance, uint64_t maxReport, ArrayDiff& diff, Scratch& scratch) {
    diff.idKind = plan.ids != nullptr ? plan.idKind : "";
    Recorder<T> recorder(tolerance, maxReport, diff);
    const bool byPosition = plan.toB == nullptr && plan.itemsA.SameLayout(plan.itemsB);
    if (byPosition || !ItemsFit(plan.itemsA) || !ItemsFit(plan.itemsB)) {
        ComparePositions(a, b, recorder, scratch.For<T>());
    } else {
        ItemPairing<T>(a, b, plan, recorder, scratch).Run();
    }
    recorder.Finish(plan);
}

}  // namespace

void CompareValues(const Mrl::Array& a, const Mrl::Array& b, const Plan& plan,
                   const Tolerance& tolerance, uint64_t maxReport, ArrayDiff& diff,
                   Scratch& scratch) {
    if (a.IsFloat()) {
        CompareAs<float>(a, b, plan, tolerance, maxReport, diff, scratch);
    } else {
        CompareAs<uint32_t>(a, b, plan, tolerance, maxReport, diff, scratch);
    }
}

}  // namespace ZolDiff
