/* A library that misbehaves on purpose, for the tests of sweeps: runSurfChem examines the recipe. With a pressure of
   40013 Pa the process crashes, with 40017 Pa it hangs, with 40019 Pa it prints and exits. With 40021 and 40023 Pa it
   waits until a run with the other one has started. Recipes that do not crash, hang or exit are passed to the library
   that the environment variable TEST_REAL_LIBRARY names. */

#include <dlfcn.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef int32_t (*run_function)(const char*, const char*, char*);

/* Returns when both have been called, by files in the folder that the environment variable TEST_MEET names. */
static void meet(const char* mine, const char* other) {
  char path[4096];
  snprintf(path, sizeof path, "%s/%s", getenv("TEST_MEET"), mine);
  fclose(fopen(path, "w"));
  snprintf(path, sizeof path, "%s/%s", getenv("TEST_MEET"), other);
  while (access(path, F_OK) != 0) usleep(1000);
}

int32_t runSurfChem(const char* input, const char* output, char* error_buffer) {
  static char content[1 << 20];
  FILE* file = fopen(input, "rb");
  size_t length = file ? fread(content, 1, sizeof content - 1, file) : 0;
  if (file) fclose(file);
  content[length] = '\0';
  if (strstr(content, "\"40013\"")) raise(SIGSEGV);
  while (strstr(content, "\"40017\"")) pause();
  if (strstr(content, "\"40019\"")) {
    puts("not an answer");
    fflush(stdout);
    exit(7);
  }
  if (strstr(content, "\"40021\"")) meet("40021", "40023");
  if (strstr(content, "\"40023\"")) meet("40023", "40021");
  void* library = dlopen(getenv("TEST_REAL_LIBRARY"), RTLD_NOW);
  run_function run = library ? (run_function)dlsym(library, "runSurfChem") : NULL;
  if (!run) {
    strcpy(error_buffer, "the real library can't be loaded");
    return 1;
  }
  return run(input, output, error_buffer);
}
