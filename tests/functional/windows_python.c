/* Instead of Python, for tests of the tool on Windows. With -c it finds all modules. Otherwise it prints its arguments
   and what the tool sets in the environment, one per line in UTF-8, and returns 7. */
#include <wchar.h>
#include <windows.h>

static void print_line(const wchar_t* text) {
  char bytes[4096];
  const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, sizeof bytes, NULL, NULL);
  DWORD written;
  if (length < 1) return;
  bytes[length - 1] = '\n';
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes, (DWORD)length, &written, NULL);
}

int wmain(int argc, wchar_t** argv) {
  static const wchar_t* const NAMES[] = {L"VORLEN", L"VORLEN_LIBRARY", L"PYTHONUTF8"};
  if (argc > 1 && wcscmp(argv[1], L"-c") == 0) return 0;
  for (int k = 1; k < argc; ++k) print_line(argv[k]);
  for (int k = 0; k < (int)(sizeof NAMES / sizeof *NAMES); ++k) {
    wchar_t value[4096] = L"";
    GetEnvironmentVariableW(NAMES[k], value, 4096);
    print_line(value);
  }
  return 7;
}
