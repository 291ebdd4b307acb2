/* A library controlled by environment variables, for tests of its callers: runSurfChem appends its recipe to the file
   TEST_RECIPES, copies the file TEST_ROWS to the result, and returns 1 with TEST_TEXT if that is set. A %s in
   it is replaced by the path of the recipe. */

#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static void copy_file(const char* from, const char* to, const char* mode) {
  FILE* in = from ? fopen(from, "rb") : NULL;
  FILE* out = to && *to ? fopen(to, mode) : NULL;
  if (in && out) {
    int c;
    while ((c = fgetc(in)) != EOF) fputc(c, out);
  }
  if (in) fclose(in);
  if (out) fclose(out);
}

int32_t runSurfChem(const char* input, const char* output, char* error_buffer) {
  copy_file(input, getenv("TEST_RECIPES"), "ab");
  copy_file(getenv("TEST_ROWS"), output, "wb");
  while (getenv("TEST_HANG")) pause();
  if (getenv("TEST_CRASH")) raise(SIGSEGV);
  if (!getenv("TEST_TEXT")) return 0;
  snprintf(error_buffer, 2048, getenv("TEST_TEXT"), input);
  return 1;
}
