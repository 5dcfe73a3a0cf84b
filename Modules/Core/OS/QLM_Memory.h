#pragma once
// The checked allocator.

#include <cstddef>

/// Allocates `size` bytes; 0 gives null. When memory is short it releases what can be paged out and retries
/// for up to five seconds; then returns null when `canFail`, else raises. Any thread.
void* QLM_Malloc(size_t size, bool canFail);
/// New block of newSize with the smaller of both sizes copied; the old block is freed on success.
void* QLM_Realloc(void* pointer, size_t oldSize, size_t newSize, bool canFail);
void QLM_Free(void* pointer);
