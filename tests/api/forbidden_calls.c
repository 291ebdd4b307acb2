/* Calls that no file of the library may make. library_symbols.sh must report them. */
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

void forbidden_calls(int status);

void forbidden_calls(int status) {
  puts(setlocale(LC_ALL, ""));
  if (status == 1) abort();
  exit(status);
}
