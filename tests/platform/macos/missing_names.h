// What Linux has and macOS lacks, of the functions that a POSIX program is likely to use. Their use is an error.
// Included before each source file, after the headers that declare them.
#include <dirent.h>
#include <fcntl.h>
#include <fenv.h>
#include <langinfo.h>
#include <locale.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#undef O_PATH
#undef O_TMPFILE
#pragma GCC poison pipe2 dup3 accept4 memfd_create prctl PR_SET_PDEATHSIG ppoll pselect6 renameat2 sendfile splice \
    epoll_create1
#pragma GCC poison eventfd signalfd timerfd_create inotify_init sighandler_t strchrnul mempcpy rawmemchr memrchr \
    secure_getenv
#pragma GCC poison canonicalize_file_name get_current_dir_name program_invocation_name program_invocation_short_name
#pragma GCC poison execvpe fallocate posix_fallocate sigwaitinfo sigtimedwait pthread_setaffinity_np sched_setaffinity
#pragma GCC poison st_mtim st_atim st_ctim feenableexcept fedisableexcept
