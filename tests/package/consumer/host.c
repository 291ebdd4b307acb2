/* host_c RECIPE RESULT: a small host in C against the installed library. */
#include <stdio.h>
#include <vorlen_solver.h>

int main(int argc, char** argv) {
  char text[VORLEN_ERROR_BUFFER_SIZE];
  if (argc != 3) return 2;
  if (runSurfChem(argv[1], argv[2], text) != 0) {
    fprintf(stderr, "%s\n", text);
    return 1;
  }
  puts("grown");
  return 0;
}
