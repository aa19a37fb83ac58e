#include "OrderedPool.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>

namespace ZolInfo {

unsigned DumpThreads() {
    // Each thread brings slots of text; past this many the memory would grow past its bound
    // for little gain, as the run's thread writes every text.
    constexpr long kMost = 16;
    if (const char* text = std::getenv("ZOLINFO_THREADS")) {
        char* end = nullptr;
        const long chosen = std::strtol(text, &end, 10);
        if (end != text && *end == '\0' && chosen >= 1) {
            return static_cast<unsigned>(std::min(chosen, kMost));
        }
    }
    const unsigned cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1 : std::min<unsigned>(cores, kMost);
}

OrderedPool::OrderedPool(OutputBuffer& out, unsigned threads) : out_(out) {
    // Two ranges per thread keep every thread busy while the oldest text is written.
    const size_t slots = 2 * size_t{threads} + 1;
    for (size_t i = 0; i < slots; ++i) entries_.push_back(std::make_unique<Entry>());
    for (unsigned i = 1; i < threads; ++i) workers_.emplace_back(&OrderedPool::Work, this);
}

OrderedPool::~OrderedPool() {
    // Unwinding from a failed read: the lines before it are written, as on one thread.
    try {
        Drain();
    } catch (...) {
    }
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    queued_.notify_all();
    for (std::thread& worker : workers_) worker.join();
}

OrderedPool::Slot& OrderedPool::Acquire() {
    std::unique_lock<std::mutex> lock(lock_);
    while (At(submitted_).state != State::kFree) RetireOldest(lock);
    Slot& slot = At(submitted_).slot;
    slot.values.clear();
    slot.more.clear();
    return slot;
}

void OrderedPool::Submit(Format format) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        Entry& entry = At(submitted_);
        entry.format = std::move(format);
        entry.state = State::kQueued;
        ++submitted_;
    }
    queued_.notify_one();
}

void OrderedPool::Drain() {
    std::unique_lock<std::mutex> lock(lock_);
    while (RetireOldest(lock)) {
    }
}

bool OrderedPool::RetireOldest(std::unique_lock<std::mutex>& lock) {
    if (written_ == submitted_) return false;
    Entry& oldest = At(written_);
    if (oldest.state != State::kDone) {
        // Rather than wait, the run's thread formats a range itself when one is waiting.
        if (started_ < submitted_) {
            RunOne(lock);
        } else {
            done_.wait(lock);
        }
        return true;
    }
    ++written_;
    // Only this thread touches a finished slot; the texts go out without the lock.
    lock.unlock();
    Slot& slot = oldest.slot;
    std::exception_ptr failure = std::exchange(oldest.failure, nullptr);
    const std::string spilled = slot.spill.str();
    if (!spilled.empty()) {
        out_.Splice(spilled);
        slot.spill.str(std::string());
    }
    out_.Splice(slot.text.Pending());
    slot.text.Discard();
    lock.lock();
    oldest.state = State::kFree;
    oldest.format = nullptr;
    if (failure) std::rethrow_exception(failure);
    return true;
}

void OrderedPool::RunOne(std::unique_lock<std::mutex>& lock) {
    Entry& entry = At(started_++);
    lock.unlock();
    try {
        entry.format(entry.slot);
    } catch (...) {
        entry.failure = std::current_exception();
    }
    lock.lock();
    entry.state = State::kDone;
    done_.notify_all();
}

void OrderedPool::Work() {
    std::unique_lock<std::mutex> lock(lock_);
    for (;;) {
        queued_.wait(lock, [this] { return stopping_ || started_ < submitted_; });
        if (started_ < submitted_) {
            RunOne(lock);
        } else {
            return;
        }
    }
}

}  // namespace ZolInfo
