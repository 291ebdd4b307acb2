// Nothing to do: the XML parser is compiled with classes of characters that no locale changes (ascii_classes.h), and
// numbers are read and written without a locale. A locale of one thread would not help: while a thread gets one,
// numbers that other threads read go wrong.
#include "platform/classic_locale.h"

namespace vorlen {

ClassicLocaleScope::ClassicLocaleScope() = default;
ClassicLocaleScope::~ClassicLocaleScope() = default;

}  // namespace vorlen
