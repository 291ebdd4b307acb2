#include "platform/to_double.h"

#include <cstdlib>

namespace vorlen {

double to_double(const char* first, const char*, bool) { return std::strtod(first, nullptr); }

}  // namespace vorlen
