// On macOS this header declares what <locale.h> does elsewhere.
#include <locale.h>
