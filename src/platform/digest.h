// Fingerprints and base64, from the system's cryptographic library.
#pragma once

#include <istream>
#include <string>

namespace platform {

// SHA-256 of all that can be read from in, in hexadecimal digits; empty if reading fails.
std::string sha256_of(std::istream& in);

std::string base64_of(const std::string& bytes);

}  // namespace platform
