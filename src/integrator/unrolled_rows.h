// Rows of a column of known length, processed in pairs, and loops that are unrolled at compile time.
//
// A step of the elimination starts one row below the previous step. Pairs of rows that also started there would overlap
// two pairs stored by the previous step, and would wait for both stores. Here a pair always starts at an even row; an
// odd first row, or a last row without a partner, is processed alone.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vorlen::unrolled {

using RowPair [[gnu::vector_size(2 * sizeof(double))]] = double;
using RowPairMask = decltype(RowPair{} > RowPair{});  // all bits of a row set or none

// Operations on one row and on two rows under the same names.
struct One {
  static double Load(const double* rows) { return *rows; }
  static void Store(double* rows, double value) { *rows = value; }
  static double Abs(double value) { return __builtin_fabs(value); }
};

struct Two {
  static RowPair Load(const double* rows) {
    RowPair pair;
    std::memcpy(&pair, rows, sizeof(pair));
    return pair;
  }
  static void Store(double* rows, RowPair pair) { std::memcpy(rows, &pair, sizeof(pair)); }
  static RowPair Abs(RowPair pair) {
    constexpr RowPair SIGNS = {-0.0, -0.0};
    return reinterpret_cast<RowPair>(reinterpret_cast<RowPairMask>(pair) & ~reinterpret_cast<RowPairMask>(SIGNS));
  }
};

template <std::int32_t I>
using Index = std::integral_constant<std::int32_t, I>;

// Calls visit(Index<I>()) for I = FIRST, FIRST + STEP, ... below END.
template <std::int32_t FIRST, std::int32_t END, std::int32_t STEP = 1, class Visit>
[[gnu::always_inline]] inline void For(Visit visit) {
  if constexpr (FIRST < END) {
    visit(Index<FIRST>());
    For<FIRST + STEP, END, STEP>(visit);
  }
}

// Calls visit(One(), i) or visit(Two(), i) for the rows from the even row FIRST to N - 1.
template <std::int32_t FIRST, std::int32_t N, class Visit>
[[gnu::always_inline]] inline void EvenRows(Visit visit) {
  static_assert(FIRST % 2 == 0);
  if constexpr (FIRST + 1 < N) {
    visit(Two(), FIRST);
    EvenRows<FIRST + 2, N>(visit);
  } else if constexpr (FIRST < N) {
    visit(One(), FIRST);
  }
}

}  // namespace vorlen::unrolled
