#include "platform/digest.h"

#include <nettle/base16.h>
#include <nettle/base64.h>
#include <nettle/sha2.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform {

std::string sha256_of(std::istream& in) {
  sha256_ctx context;
  sha256_init(&context);
  std::array<char, 65536> block{};
  while (in.read(block.data(), block.size()) || in.gcount() > 0) {
    sha256_update(&context, static_cast<std::size_t>(in.gcount()), reinterpret_cast<const std::uint8_t*>(block.data()));
  }
  if (in.bad()) return "";
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  std::array<char, BASE16_ENCODE_LENGTH(SHA256_DIGEST_SIZE)> digits{};
  base16_encode_update(digits.data(), digest.size(), digest.data());
  return {digits.data(), digits.size()};
}

std::string base64_of(const std::string& bytes) {
  std::string text(BASE64_ENCODE_RAW_LENGTH(bytes.size()), '\0');
  base64_encode_raw(text.data(), bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
  return text;
}

}  // namespace platform
