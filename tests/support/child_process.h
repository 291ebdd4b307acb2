// Work that is done in a child process, because it changes what a process can't change back.
#pragma once

#include <functional>
#include <string>

namespace vorlen_test {

// Runs work in a forked child and returns its text. A child that ends by a signal gives "ended by signal N".
std::string text_from_child(const std::function<std::string()>& work);

// Gives up the rights of root for those of the user nobody; nothing to do for any other user. False if it fails.
bool become_nobody();

}  // namespace vorlen_test
