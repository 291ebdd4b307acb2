// The console, and the events that come from it.
#pragma once

namespace platform {

// Makes the console of the program show UTF-8 and understand control sequences until the program ends, and lets
// interruptions wait or be recorded.
void prepare_console();

// From now on Ctrl-C is the business of a program that this one waits for.
void leave_interruptions_to_others();

}  // namespace platform
