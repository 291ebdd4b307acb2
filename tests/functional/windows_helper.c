/* A program for tests of the tool on Windows:
     windows_helper interrupt FILE COMMAND...  starts the command, presses Ctrl-Break when FILE has appeared, and returns
                                               the command's exit status
     windows_helper -c ...                     an interpreter that finds all modules
     windows_helper -m ...                     prints its arguments and what the tool sets in the environment; returns 7 */
#include <stdio.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

static void print_line(const wchar_t* text) {
  char bytes[4096];
  int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, sizeof bytes - 1, NULL, NULL);
  if (length < 1) return;
  bytes[length - 1] = '\n';
  DWORD written;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes, (DWORD)length, &written, NULL);
}

static void print_variable(const wchar_t* name) {
  wchar_t line[4096] = L"";
  wchar_t value[4000] = L"";
  GetEnvironmentVariableW(name, value, 4000);
  _snwprintf(line, 4095, L"%ls=%ls", name, value);
  print_line(line);
}

/* The command line after its first words, each without blanks. */
static wchar_t* rest_of_line(int words) {
  wchar_t* at = GetCommandLineW();
  for (int k = 0; k < words; ++k) {
    const wchar_t end = *at == L'"' ? L'"' : L' ';
    at = wcschr(at + 1, end) + 1;
    while (*at == L' ') ++at;
  }
  return at;
}

static int interrupt(const wchar_t* file, wchar_t* command) {
  STARTUPINFOW startup = {.cb = sizeof startup};
  PROCESS_INFORMATION started;
  if (!CreateProcessW(NULL, command, NULL, NULL, TRUE, CREATE_NEW_PROCESS_GROUP, NULL, NULL, &startup, &started)) {
    return 100;
  }
  for (int k = 0; k < 600 && GetFileAttributesW(file) == INVALID_FILE_ATTRIBUTES; ++k) Sleep(50);
  if (!GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, started.dwProcessId)) return 101;
  DWORD status = 102;
  if (WaitForSingleObject(started.hProcess, 30000) == WAIT_OBJECT_0) GetExitCodeProcess(started.hProcess, &status);
  return (int)status;
}

int wmain(int argc, wchar_t** argv) {
  if (argc > 3 && wcscmp(argv[1], L"interrupt") == 0) {
    /* Without a window to show it in, the system may not have a console yet. */
    if (GetConsoleWindow() == NULL) AllocConsole();
    return interrupt(argv[2], rest_of_line(3));
  }
  if (argc > 1 && wcscmp(argv[1], L"-c") == 0) return 0;
  for (int k = 1; k < argc; ++k) print_line(argv[k]);
  print_variable(L"VORLEN");
  print_variable(L"VORLEN_LIBRARY");
  print_variable(L"PYTHONPATH");
  return 7;
}
