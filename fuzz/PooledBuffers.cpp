// Block buffers have a capacity of at least 10 MiB, and under AddressSanitizer every such
// allocation maps and poisons fresh shadow memory: about 25 ms per block on our machines,
// which would leave the fuzzers at a few runs per second. The fuzz targets are linked with
// --wrap for malloc, realloc and free, and this file serves allocations of 1 MiB and more
// from a pool of mappings instead; smaller ones go to the sanitizer's allocator as usual.
//
// What the sanitizer would have caught on these buffers still faults: each buffer ends at an
// inaccessible guard page, and a freed buffer stays inaccessible until it is handed out
// again. Leaks are counted by PooledBuffersInUse, which the targets check after each input.
#include "PooledBuffers.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

extern "C" {
void* __real_malloc(size_t size);
void* __real_realloc(void* pointer, size_t size);
void __real_free(void* pointer);
}

namespace {

constexpr size_t kPooledFrom = size_t{1} << 20;
constexpr size_t kLimit = size_t{2048} << 20;  // as libFuzzer's -malloc_limit_mb
constexpr size_t kPoolKept = size_t{512} << 20;

struct Mapping {
    char* base = nullptr;
    size_t length = 0;  // guard page included
    size_t size = 0;    // what the caller asked for
};

struct Pool {
    std::mutex lock;
    std::map<void*, Mapping> live;
    std::multimap<size_t, Mapping> idle;  // by length
    size_t idleBytes = 0;
};

Pool& ThePool() {
    static Pool* pool = new Pool();  // never destroyed: frees may come from late destructors
    return *pool;
}

size_t PageSize() {
    static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return page;
}

void* PooledAllocate(size_t size) {
    if (size > kLimit) {
        std::fprintf(stderr, "==ERROR: pooled malloc(%zu) exceeds the 2048 MiB limit\n", size);
        std::abort();
    }
    const size_t page = PageSize();
    const size_t length = (size + page - 1) / page * page + page;
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> guard(pool.lock);
    Mapping mapping;
    auto idle = pool.idle.find(length);
    if (idle != pool.idle.end()) {
        mapping = idle->second;
        pool.idle.erase(idle);
        pool.idleBytes -= length;
        if (mprotect(mapping.base, length - page, PROT_READ | PROT_WRITE) != 0) std::abort();
    } else {
        void* base =
            mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) return nullptr;
        mapping.base = static_cast<char*>(base);
        mapping.length = length;
        if (mprotect(mapping.base + length - page, page, PROT_NONE) != 0) std::abort();
    }
    mapping.size = size;
    // The end of the buffer meets the guard page as closely as 16-byte alignment allows.
    char* user = mapping.base + (length - page) - (size + 15) / 16 * 16;
    pool.live[user] = mapping;
    return user;
}

// Returns false for a pointer that the pool didn't hand out.
bool PooledFree(void* pointer) {
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> guard(pool.lock);
    auto found = pool.live.find(pointer);
    if (found == pool.live.end()) return false;
    Mapping mapping = found->second;
    pool.live.erase(found);
    if (pool.idleBytes + mapping.length > kPoolKept) {
        munmap(mapping.base, mapping.length);
        return true;
    }
    if (mprotect(mapping.base, mapping.length - PageSize(), PROT_NONE) != 0) std::abort();
    pool.idle.emplace(mapping.length, mapping);
    pool.idleBytes += mapping.length;
    return true;
}

size_t PooledSize(void* pointer) {
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> guard(pool.lock);
    auto found = pool.live.find(pointer);
    return found == pool.live.end() ? 0 : found->second.size;
}

}  // namespace

size_t PooledBuffersInUse() {
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> guard(pool.lock);
    return pool.live.size();
}

extern "C" void* __wrap_malloc(size_t size) {
    return size < kPooledFrom ? __real_malloc(size) : PooledAllocate(size);
}

extern "C" void __wrap_free(void* pointer) {
    if (pointer != nullptr && !PooledFree(pointer)) __real_free(pointer);
}

extern "C" void* __wrap_realloc(void* pointer, size_t size) {
    if (pointer == nullptr) return __wrap_malloc(size);
    const size_t pooledSize = PooledSize(pointer);
    if (pooledSize == 0 && size < kPooledFrom) return __real_realloc(pointer, size);
    const size_t oldSize = pooledSize != 0 ? pooledSize : malloc_usable_size(pointer);
    void* moved = __wrap_malloc(size);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, pointer, oldSize < size ? oldSize : size);
    __wrap_free(pointer);
    return moved;
}
