// While it reads an element, an attribute or a text, the parser holds it by a local variable alone, and links it behind
// that: an allocation that fails meanwhile would lose it. So what is not linked yet is noted here. For this the
// parser's calls of operator new and delete are led to the two functions at the end (src/CMakeLists.txt). It makes its
// objects by them and nothing else; the memory of its strings comes from the C++ library and goes with the objects.
#include "recipe/parse_document.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>

#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

bool is_linked(const TiXmlNode& node) {
  const TiXmlNode* const parent = node.Parent();
  return parent != nullptr && (parent->FirstChild() == &node || node.PreviousSibling() != nullptr);
}

// What a parser has made and may not have linked.
struct UnlinkedObjects {
  // Those that are open, each the parent of the next; the last ones may be linked. Has room for an empty element in the
  // innermost one, and is never full.
  std::array<TiXmlElement*, NESTING_MAX + 2> elements;
  std::size_t n_elements = 0;
  TiXmlBase* last = nullptr;  // the object made last, unless it is an element or has been deleted
};

void drop_linked_elements(UnlinkedObjects& unlinked) {
  auto& [elements, n_elements, last] = unlinked;
  while (n_elements > 0 && is_linked(*elements[n_elements - 1])) --n_elements;
}

// Anything but an element is linked, or deleted, before the parser makes its next object.
void note_new(UnlinkedObjects& unlinked, void* block, std::size_t size) {
  auto& [elements, n_elements, last] = unlinked;
  last = nullptr;
  drop_linked_elements(unlinked);
  if (n_elements == elements.size()) return;
  if (size == sizeof(TiXmlElement)) {
    elements[n_elements++] = static_cast<TiXmlElement*>(block);
  } else {
    last = static_cast<TiXmlBase*>(block);
  }
}

// The block may be memory of a string. What was noted behind a deleted element stands below it.
void note_delete(UnlinkedObjects& unlinked, const void* block) {
  auto& [elements, n_elements, last] = unlinked;
  if (block == last) last = nullptr;
  n_elements =
      static_cast<std::size_t>(std::find(elements.begin(), elements.begin() + n_elements, block) - elements.begin());
}

void delete_objects(UnlinkedObjects& unlinked) {
  auto& [elements, n_elements, last] = unlinked;
  const TiXmlNode* const node = dynamic_cast<TiXmlNode*>(last);
  const bool last_is_linked =
      node != nullptr ? is_linked(*node) : n_elements > 0 && elements[n_elements - 1]->LastAttribute() == last;
  if (!last_is_linked) delete last;
  drop_linked_elements(unlinked);
  while (n_elements > 0) delete elements[--n_elements];
}

thread_local UnlinkedObjects* unlinked_objects = nullptr;  // of the parser that runs on this thread

}  // namespace

void parse_document(const char* text, TiXmlDocument& document) {
  UnlinkedObjects unlinked;
  unlinked_objects = &unlinked;
  try {
    document.Parse(text);
  } catch (...) {
    unlinked_objects = nullptr;
    delete_objects(unlinked);
    document.Clear();
    throw;
  }
  unlinked_objects = nullptr;
}

}  // namespace vorlen

extern "C" void* vorlen_parser_new(std::size_t size) {
  void* const block = ::operator new(size);
  if (vorlen::unlinked_objects != nullptr) vorlen::note_new(*vorlen::unlinked_objects, block, size);
  return block;
}

extern "C" void vorlen_parser_delete(void* block, std::size_t) noexcept {
  if (vorlen::unlinked_objects != nullptr) vorlen::note_delete(*vorlen::unlinked_objects, block);
  ::operator delete(block);
}
