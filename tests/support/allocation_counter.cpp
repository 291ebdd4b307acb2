#include "support/allocation_counter.h"

#include <malloc.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>

namespace vorlen_test {

std::atomic<long> allocations{0};
std::atomic<long> live_blocks{0};
std::atomic<long> live_bytes{0};
std::atomic<long> peak_bytes{0};
std::atomic<long> refused_from{-1};
std::atomic<long> refused_count{LONG_MAX};

namespace {

// Counts one allocation; true if it must fail.
bool must_fail() {
  const long number = allocations++;
  const long from = refused_from;
  return from >= 0 && number >= from && number - from < refused_count;
}

}  // namespace
}  // namespace vorlen_test

#if defined(VORLEN_ADDRESS_SANITIZER) || defined(VORLEN_THREAD_SANITIZER)

void* operator new(std::size_t size) {
  if (!vorlen_test::must_fail()) {
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t) noexcept { std::free(block); }

#else

// The C library's allocator, under the names that remain available when malloc is replaced.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace vorlen_test {
namespace {

void* kept(void* block) {
  if (block == nullptr) return nullptr;
  ++live_blocks;
  const long now = live_bytes += static_cast<long>(malloc_usable_size(block));
  long peak = peak_bytes;
  while (now > peak && !peak_bytes.compare_exchange_weak(peak, now)) {
  }
  return block;
}

void given_back(void* block) {
  if (block == nullptr) return;
  --live_blocks;
  live_bytes -= static_cast<long>(malloc_usable_size(block));
}

void* no_memory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace
}  // namespace vorlen_test

extern "C" {

void* malloc(std::size_t size) {
  using namespace vorlen_test;
  return must_fail() ? no_memory() : kept(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
  using namespace vorlen_test;
  return must_fail() ? no_memory() : kept(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
  using namespace vorlen_test;
  if (must_fail()) return no_memory();
  given_back(block);
  return kept(__libc_realloc(block, size));
}

void free(void* block) {
  vorlen_test::given_back(block);
  __libc_free(block);
}

}  // extern "C"

#endif
