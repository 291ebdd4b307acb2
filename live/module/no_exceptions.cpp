// The standard library for WebAssembly has no exceptions: what would throw one ends the module with a trap.
#include <cstddef>

extern "C" {

// The compiler calls these for a throw expression.
void* __cxa_allocate_exception(std::size_t) { __builtin_trap(); }  // NOLINT(bugprone-reserved-identifier)
[[noreturn]] void __cxa_throw(void*, void*, void (*)(void*)) {
  __builtin_trap();
}  // NOLINT(bugprone-reserved-identifier)
}
