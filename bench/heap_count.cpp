// Replaces the allocation functions of the process by ones that count the bytes in use, per thread. Sizes are those of
// the allocator's blocks, so freeing a block subtracts exactly what allocating it added.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "bench_support.h"

namespace {

thread_local std::int64_t bytes_in_use = 0;
thread_local std::int64_t bytes_peak = 0;

void* counted_allocate(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  bytes_in_use += static_cast<std::int64_t>(malloc_usable_size(block));
  bytes_peak = std::max(bytes_peak, bytes_in_use);
  return block;
}

void counted_free(void* block) {
  if (block == nullptr) return;
  bytes_in_use -= static_cast<std::int64_t>(malloc_usable_size(block));
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return counted_allocate(size); }
void* operator new[](std::size_t size) { return counted_allocate(size); }
void operator delete(void* block) noexcept { counted_free(block); }
void operator delete[](void* block) noexcept { counted_free(block); }
void operator delete(void* block, std::size_t) noexcept { counted_free(block); }
void operator delete[](void* block, std::size_t) noexcept { counted_free(block); }

namespace vorlen::bench {

std::int64_t heap_bytes() { return bytes_in_use; }
std::int64_t heap_peak() { return bytes_peak; }
void reset_heap_peak() { bytes_peak = bytes_in_use; }

}  // namespace vorlen::bench
