// Work that is done in a child process because its effect on the process cannot be undone.
#pragma once

#include <functional>
#include <string>

namespace vorlen_test {

// Runs work in a forked child and returns its text. If a signal ends the child, the text is "ended by signal N".
std::string text_from_child(const std::function<std::string()>& work);

// Switches from root to the user nobody; does nothing for other users. False if it fails.
bool become_nobody();

}  // namespace vorlen_test
