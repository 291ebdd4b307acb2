// Exit statuses of the tool.
#pragma once

constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;  // the work could not be done; a message on stderr says why
constexpr int EXIT_USAGE = 2;   // the command line was not understood
