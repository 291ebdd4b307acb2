/* Runs recipes with the shared library: run_recipes FOLDER LIST
 *
 * LIST is a file with the path of one recipe per line, of which there may be more than a command line holds. The program
 * writes FOLDER/NAME.txt for the recipe NAME.xml, and prints for each recipe a line of JSON: name and message, which is
 * empty after a good run. It is plain C99 without calls of an operating system, so that it is the same everywhere.
 */
#include <stdio.h>
#include <string.h>

#include "vorlen_solver.h"

enum { PATH_SIZE = 4096 };

static void print_string(const char* text) {
  putchar('"');
  for (; *text != '\0'; ++text) {
    const unsigned char c = (unsigned char)*text;
    if (c == '"' || c == '\\') {
      printf("\\%c", c);
    } else if (c < 0x20) {
      printf("\\u%04x", c);
    } else {
      putchar(c);
    }
  }
  putchar('"');
}

/* The file name of a path without folders and extension, in place. */
static const char* name_of(char* path) {
  char* const slash = strrchr(path, '/');
  char* const name = slash != NULL ? slash + 1 : path;
  char* const dot = strrchr(name, '.');
  if (dot != NULL) *dot = '\0';
  return name;
}

int main(int argc, char** argv) {
  char recipe[PATH_SIZE];
  FILE* list;
  if (argc != 3 || (list = fopen(argv[2], "r")) == NULL) {
    fprintf(stderr, "usage: run_recipes FOLDER LIST\n");
    return 2;
  }
  while (fgets(recipe, sizeof recipe, list) != NULL) {
    char copy[PATH_SIZE];
    char result[2 * PATH_SIZE];
    char message[VORLEN_ERROR_BUFFER_SIZE] = "";
    const char* name;
    recipe[strcspn(recipe, "\r\n")] = '\0';
    strcpy(copy, recipe);
    name = name_of(copy);
    if (snprintf(result, sizeof result, "%s/%s.txt", argv[1], name) >= (int)sizeof result) return 2;
    if (runSurfChem(recipe, result, message) != 0 && message[0] == '\0') strcpy(message, "no text");
    printf("{\"name\": ");
    print_string(name);
    printf(", \"message\": ");
    print_string(message);
    printf("}\n");
  }
  fclose(list);
  return 0;
}
