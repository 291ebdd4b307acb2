/* VorlenSolver simulates the growth of III-nitride layers (InGaN, AlGaN, AlInN, AlInGaN) by metal-organic vapour-phase
 * epitaxy over a whole process recipe.
 *
 * The library has one function. It reads an XML recipe (docs/recipe-format.md), integrates the growth from the start of
 * the first active stage to the end of the last one, and writes a result file (docs/result-format.md).
 *
 * This header is valid C99 and C++98.
 */
#ifndef VORLEN_SOLVER_H
#define VORLEN_SOLVER_H

#include <stdint.h>

/* On Windows the function is imported from VorlenSolver.dll. A program that contains the library instead of loading it
 * defines VORLEN_STATIC. The calling convention is that of C (__cdecl).
 */
#if !defined(_WIN32)
#define VORLEN_EXPORT __attribute__((visibility("default")))
#elif defined(VORLEN_STATIC)
#define VORLEN_EXPORT
#else
#define VORLEN_EXPORT __declspec(dllimport)
#endif

/* Size of the error buffer in bytes, including the terminating zero. */
#define VORLEN_ERROR_BUFFER_SIZE 2048

#ifdef __cplusplus
extern "C" {
#endif

/* Runs one simulation on the calling thread and returns when it has ended. Nothing can interrupt it.
 *
 *   input_path    Path of the recipe: a zero-terminated string of bytes, as the file system takes them; on Windows in
 *                 UTF-8. The file is only read. Null is an error.
 *   output_path   Path of the result file: likewise. An existing file is overwritten. An empty string: no result file.
 *                 Null is an error.
 *   error_buffer  char[VORLEN_ERROR_BUFFER_SIZE], or null if the text is not wanted. Not read.
 *
 * All numbers in the recipe and in the result carry the units that the two format pages give. The caller owns the three
 * arguments and may release them after the call. Nothing is kept between calls: no pointer, no simulation, no open
 * file.
 *
 * Returns
 *   0   The run ended normally. error_buffer is NOT touched: it still holds what the caller put there.
 *   1   The run failed. error_buffer holds the reason, zero-terminated and cut to VORLEN_ERROR_BUFFER_SIZE - 1 bytes;
 *       bytes after the terminating zero are not touched. The text is ASCII, except that paths and words of the recipe
 *       are quoted byte for byte. docs/messages.md lists every text. Among them:
 *         "Input path is not specified", "Output path is not specified"   a null path
 *         "Out of memory"   see below
 *
 * The result file after a failure
 *   The recipe cannot be read or is rejected by the reader:  not touched.
 *   The model cannot be built from the recipe:               empty; created if necessary.
 *   The integration fails:                                   header, all layers, and the rows up to the last recorded
 *                                                            point.
 *
 * Not reported
 *   Write errors, such as a full disk. Physically impossible values: result 0 does not exclude NaN in the rows.
 *   docs/embedding.md shows what to check.
 *
 * Out of memory
 *   The call returns 1, closes its files and leaves the library usable; the result file is as above or truncated. All
 *   memory is freed, except that an allocation that fails inside the XML parser leaks the part of the document parsed
 *   so far: about 20 kB for a usual recipe. A recipe whose document may not fit in memory is rejected before it is
 *   parsed.
 *
 * Threads
 *   Calls may overlap on any number of threads, each with its own output_path and error_buffer. A call starts no thread
 *   and needs less than 256 KiB of stack.
 *
 * Reproducibility
 *   The same recipe gives the same bytes in the result file and the same texts, on any thread, in any order of calls,
 *   whatever locale, environment variables, rounding mode, floating-point traps or flush-to-zero mode the host has set.
 *   The decimal separator is a point. During the call the floating-point environment is the default one.
 *
 * Side effects
 *   None but the result file. The call prints nothing, never ends the process, and leaves the following as they were:
 *   locale (C, C++ and per thread), floating-point environment with its flags, working directory, signal handlers and
 *   mask, open files, umask, environment variables, resource limits. errno may change.
 *   Signals of the host's own making are the host's to handle: SIGPIPE if output_path is a pipe whose reader leaves,
 *   SIGXFSZ if a limit on file sizes is set. A pipe without a reader blocks the call.
 */
VORLEN_EXPORT int32_t runSurfChem(const char* input_path, const char* output_path, char* error_buffer);

#ifdef __cplusplus
}
#endif

#endif
