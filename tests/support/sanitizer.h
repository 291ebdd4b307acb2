// Defines VORLEN_ADDRESS_SANITIZER or VORLEN_THREAD_SANITIZER if the tests are compiled with one: g++ defines macros,
// clang++ has __has_feature.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define VORLEN_ADDRESS_SANITIZER
#elif defined(__SANITIZE_THREAD__)
#define VORLEN_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VORLEN_ADDRESS_SANITIZER
#elif __has_feature(thread_sanitizer)
#define VORLEN_THREAD_SANITIZER
#endif
#endif
