/* A host that loads VorlenSolver.dll while it runs: dll_host DLL RECIPE FOLDER. RECIPE is a recipe with a
 * stage "GaN channel", FOLDER a new folder. Reports each failed check; the status is their number. The C library is
 * that of the DLL, so what the host sets in it would reach the library. */
#include <windows.h>
/* The others need the first. */
#include <locale.h>
#include <psapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <xmmintrin.h>

#define BUFFER_SIZE 2048

typedef int (*RunSurfChem)(const char*, const char*, char*);

static RunSurfChem run_surf_chem;
static wchar_t folder[MAX_PATH];
static int failures;

static void check(int good, const char* what) {
  if (good) return;
  printf("FAILED: %s\n", what);
  failures++;
}

/* ---- Files --------------------------------------------------------------------------------------------------------
 */

typedef struct {
  char* bytes;
  size_t size;
} Content;

static Content read_file(const wchar_t* path) {
  Content content = {NULL, 0};
  FILE* file = _wfopen(path, L"rb");
  if (file == NULL) return content;
  content.bytes = malloc(1 << 22);
  content.size = fread(content.bytes, 1, 1 << 22, file);
  fclose(file);
  return content;
}

static void write_file(const wchar_t* path, const char* bytes, size_t size) {
  FILE* file = _wfopen(path, L"wb");
  check(file != NULL && fwrite(bytes, 1, size, file) == size, "a file of the test can't be written");
  if (file != NULL) fclose(file);
}

static void in_folder(wchar_t* path, const wchar_t* name) { swprintf(path, MAX_PATH, L"%ls\\%ls", folder, name); }

static void utf8(char* bytes, const wchar_t* text) {
  WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes, 4 * MAX_PATH, NULL, NULL);
}

/* The text with each of its words old replaced by one that is at most twice as long. */
static Content replaced(Content text, const char* old, const char* word) {
  Content result = {malloc(2 * text.size + 1), 0};
  size_t k = 0;
  while (k < text.size) {
    if (k + strlen(old) <= text.size && memcmp(text.bytes + k, old, strlen(old)) == 0) {
      memcpy(result.bytes + result.size, word, strlen(word));
      result.size += strlen(word);
      k += strlen(old);
    } else {
      result.bytes[result.size++] = text.bytes[k++];
    }
  }
  return result;
}

static int contains(Content content, const char* word) {
  for (size_t k = 0; k + strlen(word) <= content.size; ++k) {
    if (memcmp(content.bytes + k, word, strlen(word)) == 0) return 1;
  }
  return 0;
}

/* ---- Runs ---------------------------------------------------------------------------------------------------------
 */

/* Runs the recipe and returns the result file. */
static Content run(const wchar_t* recipe, const wchar_t* result) {
  char input[4 * MAX_PATH], output[4 * MAX_PATH], text[BUFFER_SIZE] = "untouched";
  utf8(input, recipe);
  utf8(output, result);
  const int status = run_surf_chem(input, output, text);
  if (status != 0) printf("%s\n", text);
  check(status == 0, "a run fails");
  check(status != 0 || strcmp(text, "untouched") == 0, "a success touches the buffer");
  return read_file(result);
}

static void check_same(Content expected, const wchar_t* recipe, const wchar_t* name, const char* what) {
  wchar_t path[MAX_PATH];
  in_folder(path, name);
  const Content content = run(recipe, path);
  check(content.size > 0 && content.size == expected.size && memcmp(content.bytes, expected.bytes, content.size) == 0,
        what);
  free(content.bytes);
}

/* ---- Paths and texts in UTF-8 -------------------------------------------------------------------------------------
 */

#define MANY_SCRIPTS L"\x00dc\x0062\x0065r \x65e5\x672c \x0416 \xd83d\xde00"

static void check_paths(Content recipe_text, Content expected) {
  wchar_t recipe[MAX_PATH];
  in_folder(recipe, MANY_SCRIPTS L".xml");
  write_file(recipe, recipe_text.bytes, recipe_text.size);
  check_same(expected, recipe, MANY_SCRIPTS L".txt", "a path in many scripts");

  char text[BUFFER_SIZE], path[4 * MAX_PATH], message[BUFFER_SIZE];
  wchar_t missing[MAX_PATH];
  in_folder(missing, MANY_SCRIPTS L" missing.xml");
  utf8(path, missing);
  check(run_surf_chem(path, "", text) == 1, "a missing recipe is an error");
  snprintf(message, sizeof message, "Error reading file %s\nFailed to open file", path);
  check(strcmp(text, message) == 0, "the message has the path as it was given");

  /* In the code page of this machine these bytes are a name, in UTF-8 they are not. */
  check(run_surf_chem("\xdc\x62\x65r.xml", "", text) == 1, "a path that is not UTF-8 is not found");
  check(strcmp(text, "Error reading file \xdc\x62\x65r.xml\nFailed to open file") == 0, "message of a path not UTF-8");
  utf8(path, recipe);
  check(run_surf_chem(path, "\xdc\x62\x65r.txt", text) == 1, "a result path that is not UTF-8 can't be opened");

  check(run_surf_chem("NUL", "", text) == 1 && strstr(text, "Failed to open file") != NULL, "NUL is not a recipe");
  utf8(path, folder);
  check(run_surf_chem(path, "", text) == 1 && strstr(text, "Failed to open file") != NULL, "a folder is not a recipe");
  utf8(path, recipe);
  check(run_surf_chem(path, "NUL", text) == 0, "NUL takes a result");
}

static void check_names_and_line_ends(Content recipe_text, Content expected) {
  wchar_t recipe[MAX_PATH], result[MAX_PATH];
  in_folder(recipe, L"lines.xml");
  check(contains(recipe_text, "\n") && !contains(recipe_text, "\r"), "the recipe has LF");
  const Content with_CRLF = replaced(recipe_text, "\n", "\r\n");
  write_file(recipe, with_CRLF.bytes, with_CRLF.size);
  check_same(expected, recipe, L"lines.txt", "a recipe with CR LF");
  check(!contains(expected, "\r"), "the result has LF");

  /* An a with grave accent ends with the byte A0, a blank in the code pages of Western Europe. Without quotation marks
   * a value ends at a blank. */
  const Content named = replaced(recipe_text, "<name val=\"GaN channel\"", "<name val=\xc3\xa0\xe6\x97\xa5 ");
  check(named.size != recipe_text.size, "the recipe has a stage GaN channel");
  in_folder(recipe, L"named.xml");
  in_folder(result, L"named.txt");
  write_file(recipe, named.bytes, named.size);
  const Content content = run(recipe, result);
  check(contains(content, "\"\xc3\xa0\xe6\x97\xa5\""), "the result has the name of the stage in UTF-8");
  check(setlocale(LC_ALL, "German") != NULL, "the locale German is missing");
  check_same(content, recipe, L"named2.txt", "a name in UTF-8 under a German locale");
  setlocale(LC_ALL, "C");
  free(with_CRLF.bytes);
  free(named.bytes);
  free(content.bytes);
}

/* ---- State of the process and of the thread -----------------------------------------------------------------------
 */

static void check_locale(Content expected, const wchar_t* recipe) {
  check(setlocale(LC_ALL, "German") != NULL, "the locale German is missing");
  char* const before = strdup(setlocale(LC_ALL, NULL));
  check(strcmp(localeconv()->decimal_point, ",") == 0, "the locale German has no decimal comma");
  check_same(expected, recipe, L"locale.txt", "a run under a German locale");
  check(strcmp(setlocale(LC_ALL, NULL), before) == 0, "the locale is as before");
  setlocale(LC_ALL, "C");
  free(before);
}

typedef struct {
  unsigned short x87_control, x87_status;
  unsigned mxcsr;
} FloatingPoint;

static FloatingPoint floating_point(void) {
  FloatingPoint state;
  __asm__ volatile("fnstcw %0" : "=m"(state.x87_control));
  __asm__ volatile("fnstsw %0" : "=m"(state.x87_status));
  state.mxcsr = _mm_getcsr();
  return state;
}

static void check_floating_point(Content expected, const wchar_t* recipe) {
  static const struct {
    const char* name;
    unsigned short x87_control;
    unsigned mxcsr;
  } STATES[] = {{"as mingw starts", 0x37f, 0x1f80},
                {"as programs of other compilers start, x87 with 53 bits", 0x27f, 0x1f80},
                {"x87 with 24 bits", 0x07f, 0x1f80},
                {"rounding upwards", 0xb7f, 0x5f80},
                {"rounding downwards, x87 with 53 bits", 0x67f, 0x3f80},
                {"rounding towards zero", 0xf7f, 0x7f80},
                {"flush to zero, subnormal numbers are zero", 0x37f, 0x9fc0},
                {"all flags set", 0x37f, 0x1fbf},
                {"traps on", 0x340, 0x0000}};
  for (size_t k = 0; k < sizeof STATES / sizeof *STATES; ++k) {
    const unsigned short host_control = floating_point().x87_control;
    wchar_t result[MAX_PATH];
    char input[4 * MAX_PATH], output[4 * MAX_PATH], text[BUFFER_SIZE];
    in_folder(result, L"fp.txt");
    utf8(input, recipe);
    utf8(output, result);
    __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(STATES[k].x87_control));
    _mm_setcsr(STATES[k].mxcsr);
    const FloatingPoint before = floating_point();
    const int status = run_surf_chem(input, output, text);
    const FloatingPoint after = floating_point();
    _mm_setcsr(0x1f80);
    __asm__ volatile("fnclex\n\tfldcw %0" : : "m"(host_control));
    const Content content = read_file(result);
    printf("floating-point state: %s\n", STATES[k].name);
    check(status == 0, "the run fails");
    check(content.size == expected.size && memcmp(content.bytes, expected.bytes, content.size) == 0,
          "the floating-point state changes the result");
    check(
        before.x87_control == after.x87_control && before.x87_status == after.x87_status && before.mxcsr == after.mxcsr,
        "the floating-point state is as before");
    free(content.bytes);
  }
}

static void check_process(const wchar_t* recipe) {
  wchar_t folder_before[MAX_PATH], folder_after[MAX_PATH], result[MAX_PATH];
  DWORD handles_before = 0, handles_after = 0;
  in_folder(result, L"process.txt");
  GetCurrentDirectoryW(MAX_PATH, folder_before);
  const UINT mode_before = GetErrorMode();
  LPTOP_LEVEL_EXCEPTION_FILTER filter_before = SetUnhandledExceptionFilter(NULL);
  SetUnhandledExceptionFilter(filter_before);
  GetProcessHandleCount(GetCurrentProcess(), &handles_before);
  free(run(recipe, result).bytes);
  GetProcessHandleCount(GetCurrentProcess(), &handles_after);
  LPTOP_LEVEL_EXCEPTION_FILTER filter_after = SetUnhandledExceptionFilter(NULL);
  SetUnhandledExceptionFilter(filter_after);
  GetCurrentDirectoryW(MAX_PATH, folder_after);
  check(wcscmp(folder_before, folder_after) == 0, "the working directory is as before");
  check(handles_before == handles_after, "no handle stays open");
  check(mode_before == GetErrorMode() && filter_before == filter_after, "the error mode is as before");
}

/* ---- Threads ------------------------------------------------------------------------------------------------------
 */

enum { THREADS = 8, SHORT_THREADS = 300 };

typedef struct {
  const wchar_t* recipe;
  wchar_t result[MAX_PATH];
} Work;

static DWORD WINAPI run_on_thread(void* argument) {
  const Work* work = argument;
  free(run(work->recipe, work->result).bytes);
  return 0;
}

/* A thread of 256 KiB, as much as the header promises to suffice. */
static HANDLE start(Work* work) {
  return CreateThread(NULL, 256 << 10, run_on_thread, work, STACK_SIZE_PARAM_IS_A_RESERVATION, NULL);
}

static SIZE_T private_bytes(void) {
  PROCESS_MEMORY_COUNTERS_EX counters;
  GetProcessMemoryInfo(GetCurrentProcess(), (PROCESS_MEMORY_COUNTERS*)&counters, sizeof counters);
  return counters.PrivateUsage;
}

static void check_threads(Content expected, const wchar_t* recipe) {
  static Work work[THREADS];
  HANDLE threads[THREADS];
  for (int k = 0; k < THREADS; ++k) {
    wchar_t name[32];
    swprintf(name, 32, L"thread%d.txt", k);
    in_folder(work[k].result, name);
    work[k].recipe = recipe;
    threads[k] = start(&work[k]);
    check(threads[k] != NULL, "a thread does not start");
  }
  WaitForMultipleObjects(THREADS, threads, TRUE, INFINITE);
  for (int k = 0; k < THREADS; ++k) {
    CloseHandle(threads[k]);
    const Content content = read_file(work[k].result);
    check(content.size == expected.size && memcmp(content.bytes, expected.bytes, content.size) == 0,
          "threads have different results");
    free(content.bytes);
  }

  /* What a thread keeps is released when it ends. */
  SIZE_T before = 0;
  for (int k = 0; k < SHORT_THREADS; ++k) {
    if (k == SHORT_THREADS / 3) before = private_bytes();
    HANDLE thread = start(&work[0]);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
  }
  const SIZE_T after = private_bytes();
  printf("memory after %d threads: %lu kB more\n", 2 * SHORT_THREADS / 3,
         after > before ? (unsigned long)((after - before) >> 10) : 0UL);
  check(after < before + (1 << 20), "ended threads keep memory");
}

int wmain(int argc, wchar_t** argv) {
  wchar_t recipe[MAX_PATH], result[MAX_PATH];
  setvbuf(stdout, NULL, _IONBF, 0);
  if (argc != 4) return 100;
  wcscpy(folder, argv[3]);
  check(CreateDirectoryW(folder, NULL), "the folder can't be created");
  const Content text = read_file(argv[2]);
  in_folder(recipe, L"recipe.xml");
  in_folder(result, L"expected.txt");
  write_file(recipe, text.bytes, text.size);

  /* Loaded and released again and again, and then for good. */
  for (int k = 0; k < 5; ++k) {
    HMODULE library = LoadLibraryW(argv[1]);
    if (library == NULL) {
      printf("the library can't be loaded: error %lu\n", GetLastError());
      return 101;
    }
    run_surf_chem = (RunSurfChem)(void*)GetProcAddress(library, "runSurfChem");
    if (run_surf_chem == NULL) return 102;
    free(run(recipe, result).bytes);
    if (k < 4) check(FreeLibrary(library), "the library can't be released");
  }
  const Content expected = read_file(result);
  check(contains(expected, "\n"), "the result has lines");

  check_paths(text, expected);
  check_names_and_line_ends(text, expected);
  check_locale(expected, recipe);
  check_floating_point(expected, recipe);
  check_process(recipe);
  check_threads(expected, recipe);
  printf("%d failures\n", failures);
  return failures;
}
