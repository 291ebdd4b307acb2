#include "platform/digest.h"

#include <windows.h>
// After it:
#include <bcrypt.h>
#include <wincrypt.h>

#include <array>
#include <cstdio>

namespace platform {

std::string sha256_of(std::istream& in) {
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  BCRYPT_HASH_HANDLE hash = nullptr;
  bool good = BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0) == 0 &&
              BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) == 0;
  std::array<char, 65536> block{};
  while (good && (in.read(block.data(), block.size()) || in.gcount() > 0)) {
    good = BCryptHashData(hash, reinterpret_cast<UCHAR*>(block.data()), static_cast<ULONG>(in.gcount()), 0) == 0;
  }
  std::array<UCHAR, 32> digest{};
  good = good && !in.bad() && BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) == 0;
  if (hash != nullptr) BCryptDestroyHash(hash);
  if (algorithm != nullptr) BCryptCloseAlgorithmProvider(algorithm, 0);
  std::string digits;
  for (const UCHAR byte : digest) {
    std::array<char, 3> pair{};
    std::snprintf(pair.data(), pair.size(), "%02x", byte);
    digits += pair.data();
  }
  return good ? digits : "";
}

std::string base64_of(const std::string& bytes) {
  const auto* data = reinterpret_cast<const BYTE*>(bytes.data());
  const auto size = static_cast<DWORD>(bytes.size());
  DWORD length = 0;  // with the terminating zero
  CryptBinaryToStringA(data, size, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, nullptr, &length);
  std::string text(length, '\0');
  CryptBinaryToStringA(data, size, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, text.data(), &length);
  text.resize(length);
  return text;
}

}  // namespace platform
