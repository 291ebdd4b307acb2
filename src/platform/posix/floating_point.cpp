#include "platform/floating_point.h"

#include <cfenv>
#include <cstring>

namespace vorlen {

static_assert(sizeof(std::fenv_t) <= sizeof(DefaultFloatingPoint));

DefaultFloatingPoint::DefaultFloatingPoint() {
  std::fenv_t host;
  std::fegetenv(&host);
  std::memcpy(host_, &host, sizeof host);
  std::fesetenv(FE_DFL_ENV);
}

DefaultFloatingPoint::~DefaultFloatingPoint() {
  std::fenv_t host;
  std::memcpy(&host, host_, sizeof host);
  std::fesetenv(&host);
}

}  // namespace vorlen
