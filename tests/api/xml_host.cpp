// A host that exports (-rdynamic) the functions of another TinyXML, an incompatible version. VorlenSolver must not call
// them instead of those that it was linked with.
#include <cstdio>
#include <cstdlib>

#include "api/vorlen_solver.h"

namespace {

[[noreturn]] void called(const char* name) {
  std::fprintf(stderr, "the library calls the host's %s\n", name);
  std::exit(1);
}

}  // namespace

enum TiXmlEncoding { TIXML_ENCODING_UNKNOWN };
class TiXmlParsingData;

struct TiXmlElement {
  const char* Attribute(const char* name) const;
};

struct TiXmlNode {
  const TiXmlElement* FirstChildElement(const char* value) const;
};

struct TiXmlDocument {
  TiXmlDocument();
  const char* Parse(const char* text, TiXmlParsingData* data, TiXmlEncoding encoding);
};

const char* TiXmlElement::Attribute(const char*) const { called("TiXmlElement::Attribute"); }
const TiXmlElement* TiXmlNode::FirstChildElement(const char*) const { called("TiXmlNode::FirstChildElement"); }
TiXmlDocument::TiXmlDocument() { called("TiXmlDocument"); }
const char* TiXmlDocument::Parse(const char*, TiXmlParsingData*, TiXmlEncoding) { called("TiXmlDocument::Parse"); }

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  char text[VORLEN_ERROR_BUFFER_SIZE] = "";
  if (runSurfChem(argv[1], "", text) == 0) return 0;
  std::fprintf(stderr, "%s\n", text);
  return 1;
}
