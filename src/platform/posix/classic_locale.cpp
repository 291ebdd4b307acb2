#include "platform/classic_locale.h"

#include <locale.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

namespace vorlen {

ClassicLocaleScope::ClassicLocaleScope() {
  const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
  classic_ = classic;
  before_ = uselocale(classic);
}

ClassicLocaleScope::~ClassicLocaleScope() {
  uselocale(static_cast<locale_t>(before_));
  if (classic_ != nullptr) freelocale(static_cast<locale_t>(classic_));
}

}  // namespace vorlen
