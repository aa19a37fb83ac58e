#pragma once
#include <cstddef>

// Buffers of the pooled allocator that are allocated and not yet freed.
size_t PooledBuffersInUse();
