// As on macOS.
#include <stdint.h>
extern "C" int _NSGetExecutablePath(char* path, uint32_t* size);
