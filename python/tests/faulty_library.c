/* A library that misbehaves on purpose, for the tests of sweeps: runSurfChem examines the recipe. With a pressure of
   40013 Pa the process crashes, with 40017 Pa it hangs, with 40019 Pa it prints and exits; every other recipe is passed
   to the library that the environment variable TEST_REAL_LIBRARY names. */

#include <dlfcn.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef int32_t (*run_function)(const char*, const char*, char*);

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
  void* library = dlopen(getenv("TEST_REAL_LIBRARY"), RTLD_NOW);
  run_function run = library ? (run_function)dlsym(library, "runSurfChem") : NULL;
  if (!run) {
    strcpy(error_buffer, "the real library can't be loaded");
    return 1;
  }
  return run(input, output, error_buffer);
}
