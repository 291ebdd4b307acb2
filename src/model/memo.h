// A memo keeps the last few values of a function and finds them again by its inputs. The formulas of the model do not
// know of it: they compute a value from its inputs, whether it is kept or not.
//
// Inputs hold everything that the value depends on and that can change during a run. They are compared bit by bit, and
// a value is stored as it was computed, so reuse changes no bit of a result; -0.0 and 0.0 are different inputs, equal
// NaNs are the same one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

namespace vorlen {

// Whether a and b have the same bits. T holds numbers of 8 bytes and no padding.
template <class T>
bool equal_bits(const T& a, const T& b) {
  static_assert(std::is_trivially_copyable_v<T> && sizeof(T) % sizeof(std::uint64_t) == 0);
  for (std::size_t i = 0; i < sizeof(T); i += sizeof(std::uint64_t)) {
    std::uint64_t word_a, word_b;
    std::memcpy(&word_a, reinterpret_cast<const char*>(&a) + i, sizeof word_a);
    std::memcpy(&word_b, reinterpret_cast<const char*>(&b) + i, sizeof word_b);
    if (word_a != word_b) return false;
  }
  return true;
}

// The last N values. Each computation starts from a default-constructed Value.
template <class Inputs, class Value, std::size_t N>
class Memo {
  static_assert(std::is_trivially_destructible_v<Value>);  // a new value is made in the place of an old one

 public:
  // The value for these inputs. compute(value) fills it in when none is kept, and always when reuse is off.
  template <class Compute>
  Value& get(const Inputs& inputs, bool reuse, Compute compute) {
    for (std::size_t i = 0; reuse && i < used_; ++i) {
      if (!equal_bits(entries_[i].inputs, inputs)) continue;
      last_ = i;
      return entries_[i].value;
    }
    last_ = oldest_;
    oldest_ = oldest_ + 1 < N ? oldest_ + 1 : 0;
    if (used_ < N) ++used_;
    Entry& entry = entries_[last_];
    entry.inputs = inputs;
    ::new (static_cast<void*>(&entry.value)) Value;
    compute(entry.value);
    return entry.value;
  }

  // The value of the last call; there must have been one.
  Value& last() { return entries_[last_].value; }
  const Value& last() const { return entries_[last_].value; }

 private:
  struct Entry {
    Inputs inputs;
    Value value;
  };
  std::array<Entry, N> entries_;  // set from the first on, as far as used_
  std::size_t used_ = 0;          // entries that hold a value
  std::size_t last_ = 0;          // the entry of the last call
  std::size_t oldest_ = 0;        // the entry that the next value replaces
};

}  // namespace vorlen
