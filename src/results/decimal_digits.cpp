// Digits of a number: its mantissa times a power of ten from a table, in integers of 64 and 128 bits. The table holds
// the leading 128 bits of each power, so the product is known to two units of the 64th bit after the last digit.
#include "results/decimal_digits.h"

#include <array>
#include <bit>
#include <cstddef>

namespace vorlen {

namespace {

__extension__ typedef unsigned __int128 uint128;

// 10^power = (high 2^64 + low + something in [0, 1)) 2^(binary_exponent(power) - 127), with the highest bit of high
// set.
struct PowerOfTen {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
};

// With E = decimal_exponent(b) the powers 10^(16 - E) occur for the binary exponents b = -1074 .. 1023 of all numbers.
constexpr int LEAST_POWER = -291;
constexpr int GREATEST_POWER = 340;

// Greatest b with 2^b <= 10^power, for |power| <= 350.
constexpr int binary_exponent(int power) { return (power * 217706) >> 16; }

// Greatest E with 10^E <= 2^b, for |b| <= 1100.
constexpr int decimal_exponent(int b) { return (b * 78913) >> 18; }

// A whole number below 2^832, lowest word first: room for 5^340 as well as for 2^831.
struct BigInteger {
  static constexpr int WORDS = 26;
  std::array<std::uint32_t, WORDS> words{};

  constexpr void multiply(std::uint32_t factor) {
    std::uint64_t carry = 0;
    for (std::uint32_t& word : words) {
      carry += std::uint64_t{word} * factor;
      word = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
  }

  // Drops the remainder.
  constexpr void divide(std::uint32_t divisor) {
    std::uint64_t rest = 0;
    for (auto word = words.rbegin(); word != words.rend(); ++word) {
      rest = rest << 32 | *word;
      *word = static_cast<std::uint32_t>(rest / divisor);
      rest %= divisor;
    }
  }

  // The 128 bits from the highest one that is set; zeros follow where there are fewer.
  constexpr PowerOfTen leading_bits() const {
    int top = WORDS - 1;
    while (words[static_cast<std::size_t>(top)] == 0) --top;
    const auto word = [&](int below) {
      return std::uint64_t{below > top ? 0 : words[static_cast<std::size_t>(top - below)]};
    };
    const int used = 32 - std::countl_zero(words[static_cast<std::size_t>(top)]);
    const auto bits = [&](int below) { return (word(below) << 32 | word(below + 1)) >> used & 0xffffffffU; };
    return {bits(0) << 32 | bits(1), bits(2) << 32 | bits(3)};
  }
};

using PowerTable = std::array<PowerOfTen, GREATEST_POWER - LEAST_POWER + 1>;

// 10^p and 5^p have the same leading bits, and so have 10^-p and 2^831 / 5^p. Dividing by 5 again and again, each time
// without the remainder, gives the whole part of 2^831 / 5^p exactly; it has 155 bits at the least.
constexpr PowerTable powers_of_ten() {
  PowerTable table;
  const auto at = [&](int power) -> PowerOfTen& { return table[static_cast<std::size_t>(power - LEAST_POWER)]; };
  BigInteger number;
  number.words[0] = 1;
  for (int power = 0; power <= GREATEST_POWER; ++power) {
    at(power) = number.leading_bits();
    number.multiply(5);
  }
  number = {};
  number.words.back() = 1U << 31;
  for (int power = -1; power >= LEAST_POWER; --power) {
    number.divide(5);
    at(power) = number.leading_bits();
  }
  return table;
}

constexpr PowerTable POWERS_OF_TEN = powers_of_ten();

constexpr std::uint64_t TEN_TO_16 = 10000000000000000;
constexpr std::uint64_t TEN_TO_17 = 10 * TEN_TO_16;

constexpr int MANTISSA_BITS = 52;
constexpr std::uint64_t HIDDEN_BIT = std::uint64_t{1} << MANTISSA_BITS;
constexpr int EXPONENT_BIAS = 1023;
constexpr int EXPONENT_MASK = 0x7ff;

}  // namespace

DecimalDigits decimal_digits(double value) {
  // |value| = mantissa 2^(b - 63) with the highest bit of mantissa set.
  const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
  std::uint64_t mantissa = bits & (HIDDEN_BIT - 1);
  const int biased = static_cast<int>(bits >> MANTISSA_BITS) & EXPONENT_MASK;
  int b = biased - EXPONENT_BIAS;
  if (biased != 0 && biased != EXPONENT_MASK) {
    mantissa = (mantissa | HIDDEN_BIT) << (63 - MANTISSA_BITS);
  } else {
    const bool is_finite = biased == 0;
    if (!is_finite || mantissa == 0) return {0, 0, is_finite};
    const int zeros = std::countl_zero(mantissa);
    mantissa <<= zeros;
    b += 64 - MANTISSA_BITS - zeros;
  }

  // X = |value| 10^power lies between 10^16 and 2 10^17: 2^b < 10^(exponent + 1), and |value| < 2 2^b.
  int exponent = decimal_exponent(b);
  const int power = 16 - exponent;
  const PowerOfTen& ten = POWERS_OF_TEN[static_cast<std::size_t>(power - LEAST_POWER)];

  // X = P 2^(b + binary_exponent(power) - 190) where P is mantissa times all bits of 10^power. Those after the first
  // 128 add less than mantissa < 2^64 to P, and so does the lower half of the lower product, which is dropped here:
  // 2^64 product <= P < 2^64 (product + 2).
  const uint128 factor = mantissa;
  const uint128 product = factor * ten.high + (factor * ten.low >> 64);
  const auto high = static_cast<std::uint64_t>(product >> 64);
  const auto low = static_cast<std::uint64_t>(product);
  const int shift = 62 - b - binary_exponent(power);  // 6 to 9
  std::uint64_t digits = high >> shift;

  // The part of X after its last digit, in units of 2^-60: at least rest, and less than rest + 2. Where that takes X
  // over the next whole number, rest is far above half, and rounding goes there as well.
  std::uint64_t rest = (high << (64 - shift) | low >> shift) >> 4;
  std::uint64_t half = std::uint64_t{1} << 59;
  if (digits >= TEN_TO_17) {
    rest += digits % 10 << 60;
    half *= 10;
    digits /= 10;
    ++exponent;
  }
  const bool is_decided = rest != half && rest != half - 1;
  if (rest > half) ++digits;
  if (digits == TEN_TO_17) {
    digits = TEN_TO_16;
    ++exponent;
  }
  return {digits, exponent, is_decided};
}

}  // namespace vorlen
