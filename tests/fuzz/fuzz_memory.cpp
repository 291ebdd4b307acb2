// The parser on any text, with an allocation that fails: whatever the parser has in hand then is given back. The last
// two bytes of the input say which allocation that is.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

#include "parser_text.h"
#include "recipe/parse_document.h"
#include "recipe/xml_nesting.h"

namespace {

long live_blocks = 0;
long allocations_left = -1;  // until one fails; negative: none fails

void parse(const std::string& text) {
  TiXmlDocument document;
  try {
    vorlen::parse_document(text.c_str(), document);
  } catch (const std::bad_alloc&) {
    if (document.FirstChild() != nullptr) std::abort();
  }
}

}  // namespace

void* operator new(std::size_t size) {
  if (allocations_left >= 0 && allocations_left-- == 0) throw std::bad_alloc();
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++live_blocks;
  return block;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return operator new(size); }  // of the fuzzer

void operator delete(void* block) noexcept {
  if (block != nullptr) --live_blocks;
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string text = vorlen_fuzz::parser_text(data, size - 2);
  if (vorlen::shape_of_xml(text).nesting > vorlen::NESTING_MAX) return 0;
  const long blocks = live_blocks;
  allocations_left = data[size - 1] + 256 * (data[size - 2] % 8);
  parse(text);
  allocations_left = -1;
  if (live_blocks != blocks) std::abort();
  return 0;
}
