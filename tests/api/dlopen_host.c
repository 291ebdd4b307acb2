/* A host that opens the library at run time: dlopen_host LIBRARY RECIPE opens it, runs the recipe and closes it, three
 * times. The text for a missing recipe must remain valid after the library is closed. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "vorlen_solver.h"

typedef int32_t (*run_function)(const char*, const char*, char*);

static int fail(const char* what, const char* text) {
  fprintf(stderr, "%s: %s\n", what, text);
  return 1;
}

int main(int argc, char** argv) {
  int round;
  if (argc != 3) return 2;
  for (round = 1; round <= 3; ++round) {
    char text[VORLEN_ERROR_BUFFER_SIZE] = "untouched";
    run_function run;
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) return fail("dlopen", dlerror());
    /* The POSIX way to convert a data pointer to a function pointer. */
    *(void**)(&run) = dlsym(library, "runSurfChem");
    if (run == NULL) return fail("dlsym", dlerror());
    if (run(argv[2], "", text) != 0) return fail("run", text);
    if (strcmp(text, "untouched") != 0) return fail("text of a success", text);
    if (run("no such recipe", "", text) != 1) return fail("missing recipe", "no failure");
    if (dlclose(library) != 0) return fail("dlclose", dlerror());
    if (strcmp(text, "Error reading file no such recipe\nFailed to open file") != 0) return fail("text", text);
  }
  return 0;
}
