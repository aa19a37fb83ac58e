#pragma once
// Formats the lines of a dump section on several threads. The run's thread reads the values of a
// range of lines into a slot; a worker, or the run's thread when it would otherwise wait, turns
// them into text; the run's thread hands the texts on in the order of the ranges. Blocks are
// read, and so inflated, on the run's thread alone, so that the library's messages reach the
// run's error stream where they always did, and the text is the same as on one thread.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "OutputBuffer.h"

namespace ZolInfo {

// The threads the dump formats on: ZOLINFO_THREADS when it is a number from 1 up, else the
// machine's cores; at most 16. One gives the plain path, without a pool.
unsigned DumpThreads();

class OrderedPool {
public:
    // The text a slot holds without spilling; callers size their ranges of lines by it.
    static constexpr size_t kTextBytes = 512 << 10;

    // One range of lines: the values read for it and the text made from them.
    struct Slot {
        Slot() : text(spill, kTextBytes) {}
        std::vector<uint32_t> values;
        std::vector<uint32_t> more;  // a second input, where lines take two arrays
        std::ostringstream spill;    // text past the buffer's room, should a range need it
        OutputBuffer text;
    };
    using Format = std::function<void(Slot&)>;

    // `threads` counts the run's thread; at least 2.
    OrderedPool(OutputBuffer& out, unsigned threads);
    // Hands on the texts of the ranges queued so far, then ends the workers.
    ~OrderedPool();
    OrderedPool(const OrderedPool&) = delete;
    OrderedPool& operator=(const OrderedPool&) = delete;

    // The slot for the next range, its values cleared; waits, writing finished texts in order,
    // while all are in use.
    Slot& Acquire();
    // Queues the slot last acquired; `format` writes the range's lines into slot.text.
    void Submit(Format format);
    // Waits for every queued range and hands its text on, in order.
    void Drain();

private:
    enum class State : uint8_t { kFree, kQueued, kDone };
    struct Entry {
        Slot slot;
        Format format;
        State state = State::kFree;
        std::exception_ptr failure;
    };

    void Work();
    // Runs the next queued range; the lock is held on entry and exit, released meanwhile.
    void RunOne(std::unique_lock<std::mutex>& lock);
    // Writes the oldest range when it is done, else helps or waits; false when none is queued.
    bool RetireOldest(std::unique_lock<std::mutex>& lock);
    Entry& At(uint64_t sequence) { return *entries_[sequence % entries_.size()]; }

    OutputBuffer& out_;
    std::vector<std::unique_ptr<Entry>> entries_;
    std::vector<std::thread> workers_;
    std::mutex lock_;
    std::condition_variable queued_;
    std::condition_variable done_;
    uint64_t submitted_ = 0;
    uint64_t started_ = 0;
    uint64_t written_ = 0;
    bool stopping_ = false;
};

}  // namespace ZolInfo
