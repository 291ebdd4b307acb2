/* Runs recipes with the shared library: run_recipes FOLDER LIST
 *
 * LIST is a file with the path of one recipe in each line; there may be more than a command line can hold. The program
 * writes FOLDER/NAME.txt for the recipe NAME.xml, and prints a line of JSON for each recipe: name, message, which is
 * empty after a good run, and the duration in milliseconds. It is C99 without calls of an operating system.
 */
#include <stdio.h>
#include <string.h>
#include <time.h>

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

/* The file name of a path, without folders and extension. Changes the path. */
static const char* name_of(char* path) {
  char* const slash = strrchr(path, '/');
  char* const name = slash != NULL ? slash + 1 : path;
  char* const dot = strrchr(name, '.');
  if (dot != NULL) *dot = '\0';
  return name;
}

int main(int argc, char** argv) {
  char recipe[PATH_SIZE];
  FILE* list = argc == 3 ? fopen(argv[2], "r") : NULL;
  if (list == NULL) {
    fprintf(stderr, "usage: run_recipes FOLDER LIST\n");
    return 2;
  }
  while (fgets(recipe, sizeof recipe, list) != NULL) {
    char copy[PATH_SIZE];
    char result[2 * PATH_SIZE];
    char message[VORLEN_ERROR_BUFFER_SIZE] = "";
    const char* name;
    clock_t start;
    recipe[strcspn(recipe, "\r\n")] = '\0';
    memcpy(copy, recipe, sizeof copy);
    name = name_of(copy);
    if (strlen(argv[1]) + strlen(name) + sizeof "/.txt" > sizeof result) return 2;
    sprintf(result, "%s/%s.txt", argv[1], name);
    start = clock();
    if (runSurfChem(recipe, result, message) != 0 && message[0] == '\0') strcpy(message, "no text");
    printf("{\"name\": ");
    print_string(name);
    printf(", \"message\": ");
    print_string(message);
    printf(", \"milliseconds\": %.3f}\n", 1e3 * (double)(clock() - start) / CLOCKS_PER_SEC);
    fflush(stdout);
  }
  fclose(list);
  return 0;
}
