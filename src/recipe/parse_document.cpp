// While it reads an element, an attribute or a text, the parser holds it by a local variable alone, and links it behind
// that: an allocation that fails meanwhile would lose it. So what is not linked yet is noted here. For this the
// parser's calls of operator new and delete are led to the functions at the end (src/CMakeLists.txt). It makes its
// objects by them and nothing else; the memory of its strings comes from the C++ library and goes with the objects.
#include "recipe/parse_document.h"

#include <array>
#include <cstddef>
#include <new>

#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

// The parser's elements are known by their size.
static_assert(sizeof(TiXmlElement) != sizeof(TiXmlAttribute) && sizeof(TiXmlElement) != sizeof(TiXmlComment) &&
              sizeof(TiXmlElement) != sizeof(TiXmlDeclaration) && sizeof(TiXmlElement) != sizeof(TiXmlText) &&
              sizeof(TiXmlElement) != sizeof(TiXmlUnknown));

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

// The block may be memory of a string. An element is not deleted while the text is parsed.
void note_delete(const void* block) {
  if (unlinked_objects != nullptr && block == unlinked_objects->last) unlinked_objects->last = nullptr;
}

}  // namespace

void parse_document(const char* text, TiXmlDocument& document) {
  UnlinkedObjects unlinked;
  UnlinkedObjects* const outer = unlinked_objects;  // of a call that has come here from the host's operator new
  unlinked_objects = &unlinked;
  try {
    document.Parse(text);
  } catch (...) {
    unlinked_objects = outer;
    delete_objects(unlinked);
    document.Clear();
    throw;
  }
  unlinked_objects = outer;
}

}  // namespace vorlen

extern "C" void* vorlen_parser_new(std::size_t size) {
  void* const block = ::operator new(size);
  if (vorlen::unlinked_objects != nullptr) vorlen::note_new(*vorlen::unlinked_objects, block, size);
  return block;
}

extern "C" void vorlen_parser_plain_delete(void* block) noexcept {
  vorlen::note_delete(block);
  ::operator delete(block);
}

extern "C" void vorlen_parser_delete(void* block, std::size_t) noexcept { vorlen_parser_plain_delete(block); }
