/* VorlenSolver: growth of III-nitride alloy layers (InGaN, AlGaN, AlInN, AlInGaN) in metal-organic vapour-phase
 * epitaxy, simulated in time over a whole process recipe.
 *
 * The library has one function. It reads an XML recipe, integrates the growth from the begin of the first active stage
 * to the end of the last one, and writes one text file with the layers and a table over time and depth. The formats
 * are described in docs/recipe-format.md and docs/result-format.md, every text in docs/messages.md.
 *
 * This header is valid C99 and C++.
 */
#ifndef VORLEN_SOLVER_H
#define VORLEN_SOLVER_H

#include <stdint.h>

#ifdef _WIN32
#define VORLEN_EXPORT __declspec(dllexport)
#else
#define VORLEN_EXPORT __attribute__((visibility("default")))
#endif

/* Size of the error buffer in bytes, the terminating zero included. */
#define VORLEN_ERROR_BUFFER_SIZE 2048

#ifdef __cplusplus
extern "C" {
#endif

/* Runs one simulation.
 *
 *   input_path    path of the XML recipe, zero-terminated, in the encoding of the file system. It is only read.
 *   output_path   path of the result file, zero-terminated. An existing file is overwritten. An empty string means
 *                 that no result file is written.
 *   error_buffer  VORLEN_ERROR_BUFFER_SIZE bytes, or null when no text is wanted.
 *
 * The caller owns all three and may release them as soon as the call has returned; the library keeps no pointer, no
 * simulation and no open file between calls.
 *
 * Result: 0 when the run has ended normally, 1 in every other case. Then, and only then, error_buffer receives a
 * zero-terminated text of at most VORLEN_ERROR_BUFFER_SIZE - 1 bytes; a longer text is cut. On result 0 the buffer is
 * not touched: it holds what the caller left in it, not an empty text. The text is ASCII except for what it quotes from
 * the recipe and the paths, which stands as it was given.
 *
 * What becomes of the file at output_path:
 *   - the recipe can't be read or is refused by the reader: it is not touched;
 *   - the model can't be built from the recipe: it is emptied (created, if it did not exist);
 *   - the integration fails: it holds the header, all layers, and the rows up to the last recorded point;
 *   - the run ends normally: it is complete.
 * A null input_path or output_path gives result 1 with "Input path is not specified" or "Output path is not specified".
 * Errors while the file is written, such as a full disk, are not reported. When memory runs out the result is 1 with
 * the text "Out of memory", nothing is lost but the run, and the file is left as in one of the cases above, or cut off.
 * An output_path that is a pipe without a reader blocks; a reader that leaves, and a limit that the host has set on the
 * size of files, bring their signals (SIGPIPE, SIGXFSZ), which are the host's to handle.
 *
 * Calls may overlap: any number of threads may run simulations at the same time, each with its own paths and buffer.
 * A call runs on the calling thread alone, starts no thread and prints nothing.
 *
 * The same recipe gives the same bytes in the result file and the same texts, on any thread, in any order of calls and
 * whatever the host has set: locale (numbers have the point as decimal separator), environment variables, rounding
 * mode, floating-point traps, flush to zero. The floating-point environment is the default one during the call (round
 * to nearest, no traps, no flush to zero) and the host's own again behind it, with the flags that it had.
 *
 * A call leaves the process as it was: locale of C, of C++ and of the thread, floating-point environment, working
 * directory, signal handlers and mask, open files, umask, environment variables, limits. errno may change.
 */
VORLEN_EXPORT int32_t runSurfChem(const char* input_path, const char* output_path, char* error_buffer);

#ifdef __cplusplus
}
#endif

#endif
