// The "C" locale for a while, so that numbers have a decimal point.
#pragma once

#include <locale.h>

namespace vorlen {

// Gives the calling thread the "C" locale for the life of this object.
struct ClassicLocaleScope {
  locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
  locale_t before = uselocale(classic);

  ClassicLocaleScope() = default;
  ClassicLocaleScope(const ClassicLocaleScope&) = delete;
  ClassicLocaleScope& operator=(const ClassicLocaleScope&) = delete;
  ~ClassicLocaleScope() {
    uselocale(before);
    if (classic != nullptr) freelocale(classic);
  }
};

}  // namespace vorlen
