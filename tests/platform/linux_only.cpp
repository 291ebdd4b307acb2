// Uses what macOS lacks: the test of the sources for macOS has to report it.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

int open_both() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  return memfd_create("both", 0);
}
