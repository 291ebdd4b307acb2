#include "support/allocation_counter.h"

#include <cstdlib>
#include <new>

namespace vorlen_test {

std::atomic<long> allocations{0};
std::atomic<long> refused_from{-1};

}  // namespace vorlen_test

void* operator new(std::size_t size) {
  const long number = vorlen_test::allocations++;
  if (vorlen_test::refused_from >= 0 && number >= vorlen_test::refused_from) throw std::bad_alloc();
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t) noexcept { std::free(block); }
