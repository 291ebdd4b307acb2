/* A host in C: c_host RECIPE runs the recipe without a result file, then checks the text for a missing recipe. */
#include <stdio.h>
#include <string.h>

#include "vorlen_solver.h"

int main(int argc, char** argv) {
  char text[VORLEN_ERROR_BUFFER_SIZE] = "untouched";
  if (argc != 2) return 2;
  if (runSurfChem(argv[1], "", text) != 0) {
    fprintf(stderr, "%s\n", text);
    return 1;
  }
  if (strcmp(text, "untouched") != 0) return 1;
  if (runSurfChem("no such recipe", "", text) != 1) return 1;
  return strcmp(text, "Error reading file no such recipe\nFailed to open file") == 0 ? 0 : 1;
}
