// A look at how deeply the elements of an XML file are nested, before it is parsed.
#pragma once

#include <string>

namespace vorlen {

// Recipes nest eight levels deep. The XML library parses by recursion, which takes some 200 bytes of stack for each
// level: this limit leaves room on a thread with a stack of 64 KiB.
inline constexpr int NESTING_MAX = 100;

// True when the elements of the XML text may be nested deeper than limit. Never false for a text in which the parser
// would go deeper; true without need only for texts with declarations or byte order marks in their middle.
bool nesting_exceeds(const std::string& text, int limit);

}  // namespace vorlen
