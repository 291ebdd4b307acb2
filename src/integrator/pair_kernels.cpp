// Gaussian elimination with partial pivoting of a real and a complex matrix together, then the substitution with both.
// Rows and columns count from 0 here, the entries of IP from 1.
//
// The formulas are those of the kernels for one matrix, with the same operands in the same sequence. The differences:
// rows are processed in pairs, and the steps of the two matrices alternate.
#include "integrator/pair_kernels.h"

#include <bit>
#include <utility>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_kernels.h"
#include "integrator/unrolled_rows.h"

namespace vorlen {

using elimination::AddMultipleComplex;
using elimination::Column;
using elimination::DivideComplex;
using elimination::MarkSingular;
using elimination::PivotRow;
using elimination::PivotRowComplex;
using unrolled::EvenRows;
using unrolled::For;
using unrolled::One;
using unrolled::RowPair;
using unrolled::RowPairMask;
using unrolled::Two;

namespace {

// Visits the rows below row k: row k + 1 alone if it is odd, then the rows from EVEN on, the even one of k + 1 and k
// + 2.
template <std::int32_t N, std::int32_t EVEN, class Visit>
[[gnu::always_inline]] inline void RowsBelow(std::int32_t k, Visit visit) {
  if (k + 1 < EVEN) visit(One(), k + 1);
  EvenRows<EVEN, N>(visit);
}

// Notes whether any row is larger than the diagonal. If none is, the diagonal is the pivot: on a tie the topmost row is
// taken, and comparisons with NaN are false as in the search.
struct LargerRows {
  bool single = false;
  RowPairMask pairs = {0, 0};
  [[gnu::always_inline]] void Note(bool larger) { single |= larger; }
  [[gnu::always_inline]] void Note(RowPairMask larger) { pairs |= larger; }
  [[gnu::always_inline]] bool Any() const { return single || (pairs[0] | pairs[1]) != 0; }
};

void ExchangeRows(std::int32_t n, double* A, std::int32_t k, std::int32_t m) {
  for (std::int32_t j = k; j < n; ++j) std::swap(Column(A, n, j)[k], Column(A, n, j)[m]);
}

// True if each number is 0 or -0: no bit but the sign is set.
bool AreZero(double a, double b, double c) {
  return (std::bit_cast<std::uint64_t>(a) | std::bit_cast<std::uint64_t>(b) | std::bit_cast<std::uint64_t>(c)) << 1 ==
         0;
}

struct RealMatrix {
  double* A;
  std::int32_t* IP;
  std::int32_t zero_pivot = 0;
};

struct ComplexMatrix {
  double* AR;
  double* AI;
  std::int32_t* IP;
  std::int32_t zero_pivot = 0;
};

// The first half of step k of the elimination: brings the pivot to the diagonal and sets the multipliers. False when
// the pivot is zero. n is N, in a form that keeps the loops over the columns loops.
template <std::int32_t N, std::int32_t EVEN>
[[gnu::always_inline]] inline bool SetColumnReal(std::int32_t n, std::int32_t k, RealMatrix& matrix) {
  double* column_k = Column(matrix.A, N, k);
  const double diagonal_size = One::Abs(column_k[k]);
  LargerRows larger;
  RowsBelow<N, EVEN>(
      k, [&](auto rows, std::int32_t i)
             __attribute__((always_inline)) { larger.Note(rows.Abs(rows.Load(column_k + i)) > diagonal_size); });
  std::int32_t m = k;
  if (larger.Any()) [[unlikely]] {
    m = PivotRow(column_k, k, n);
    matrix.IP[N - 1] = -matrix.IP[N - 1];
    ExchangeRows(n, matrix.A, k, m);
  }
  matrix.IP[k] = m + 1;
  const double pivot = column_k[k];
  if (pivot == 0.0) [[unlikely]] {
    MarkSingular(N, k, matrix.IP, matrix.zero_pivot);
    return false;
  }
  const double inverse = 1.0 / pivot;
  RowsBelow<N, EVEN>(
      k, [&](auto rows, std::int32_t i)
             __attribute__((always_inline)) { rows.Store(column_k + i, -rows.Load(column_k + i) * inverse); });
  return true;
}

template <std::int32_t N, std::int32_t EVEN>
[[gnu::always_inline]] inline bool SetColumnComplex(std::int32_t n, std::int32_t k, ComplexMatrix& matrix) {
  double* re_k = Column(matrix.AR, N, k);
  double* im_k = Column(matrix.AI, N, k);
  const double diagonal_size = One::Abs(re_k[k]) + One::Abs(im_k[k]);
  LargerRows larger;
  RowsBelow<N, EVEN>(
      k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
        larger.Note(rows.Abs(rows.Load(re_k + i)) + rows.Abs(rows.Load(im_k + i)) > diagonal_size);
      });
  std::int32_t m = k;
  if (larger.Any()) [[unlikely]] {
    m = PivotRowComplex(re_k, im_k, k, n);
    matrix.IP[N - 1] = -matrix.IP[N - 1];
    ExchangeRows(n, matrix.AR, k, m);
    ExchangeRows(n, matrix.AI, k, m);
  }
  matrix.IP[k] = m + 1;
  const double pivot_re = re_k[k];
  const double pivot_im = im_k[k];
  if (One::Abs(pivot_re) + One::Abs(pivot_im) == 0.0) [[unlikely]] {
    MarkSingular(N, k, matrix.IP, matrix.zero_pivot);
    return false;
  }
  const double modulus2 = pivot_re * pivot_re + pivot_im * pivot_im;
  const double inverse_re = pivot_re / modulus2;
  const double inverse_im = -pivot_im / modulus2;
  RowsBelow<N, EVEN>(
      k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
        const auto re = rows.Load(re_k + i);
        const auto im = rows.Load(im_k + i);
        rows.Store(re_k + i, -(re * inverse_re - im * inverse_im));
        rows.Store(im_k + i, -(im * inverse_re + re * inverse_im));
      });
  return true;
}

// The second half: adds the multiples of column k to the columns after it. The two matrices have nearly the same zeros,
// so one test of all three numbers of a row skips most zeros of either.
template <std::int32_t N, std::int32_t EVEN>
[[gnu::always_inline]] inline void AddMultiples(std::int32_t n, std::int32_t k, RealMatrix& real,
                                                ComplexMatrix& complex) {
  const double* column_k = Column(real.A, N, k);
  const double* re_k = Column(complex.AR, N, k);
  const double* im_k = Column(complex.AI, N, k);
  for (std::int32_t j = k + 1; j < n; ++j) {
    double* column_j = Column(real.A, N, j);
    double* re_j = Column(complex.AR, N, j);
    double* im_j = Column(complex.AI, N, j);
    const double t = column_j[k];
    const double t_re = re_j[k];
    const double t_im = im_j[k];
    if (AreZero(t, t_re, t_im)) continue;
    if (t != 0.0) [[likely]] {
      RowsBelow<N, EVEN>(
          k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
            rows.Store(column_j + i, rows.Load(column_j + i) + rows.Load(column_k + i) * t);
          });
    }
    if (t_im == 0.0) {
      if (t_re == 0.0) [[unlikely]]
        continue;
      RowsBelow<N, EVEN>(
          k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
            rows.Store(re_j + i, rows.Load(re_j + i) + rows.Load(re_k + i) * t_re);
            rows.Store(im_j + i, rows.Load(im_j + i) + rows.Load(im_k + i) * t_re);
          });
    } else if (t_re == 0.0) [[unlikely]] {
      AddMultipleComplex(re_k, im_k, k + 1, n, t_re, t_im, re_j, im_j);
    } else {
      RowsBelow<N, EVEN>(
          k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
            const auto re = rows.Load(re_k + i);
            const auto im = rows.Load(im_k + i);
            rows.Store(re_j + i, rows.Load(re_j + i) + (re * t_re - im * t_im));
            rows.Store(im_j + i, rows.Load(im_j + i) + (im * t_re + re * t_im));
          });
    }
  }
}

// The steps from k on. Steps 2 i and 2 i + 1 differ by one row and share their code.
template <std::int32_t N, std::int32_t EVEN = 2>
[[gnu::always_inline]] inline void Eliminate(std::int32_t n, std::int32_t k, RealMatrix& real, ComplexMatrix& complex) {
  if constexpr (EVEN <= N) {
    for (; k < EVEN && k < n - 1; ++k) {
      if (!SetColumnReal<N, EVEN>(n, k, real) || !SetColumnComplex<N, EVEN>(n, k, complex)) return;
      AddMultiples<N, EVEN>(n, k, real, complex);
    }
    Eliminate<N, EVEN + 2>(n, k, real, complex);
  } else {
    if (real.A[N * N - 1] == 0.0) MarkSingular(N, N - 1, real.IP, real.zero_pivot);
    if (One::Abs(complex.AR[N * N - 1]) + One::Abs(complex.AI[N * N - 1]) == 0.0) {
      MarkSingular(N, N - 1, complex.IP, complex.zero_pivot);
    }
  }
}

template <std::int32_t N>
std::int32_t Factorise(std::int32_t n, RealMatrix real, ComplexMatrix complex) {
  real.IP[N - 1] = 1;
  complex.IP[N - 1] = 1;
  Eliminate<N>(n, 0, real, complex);
  return real.zero_pivot != 0 ? real.zero_pivot : complex.zero_pivot;
}

// The right-hand sides of the pair.
struct RightSides {
  double* B;
  double* BR;
  double* BI;
};

// The factors of the pair.
struct Factors {
  const double* A;
  const double* AR;
  const double* AI;
  const std::int32_t* IP;
  const std::int32_t* IP_complex;
};

template <std::int32_t N>
[[gnu::always_inline]] inline void SubstituteForward(const Factors& factors, const RightSides& b) {
  double* B = b.B;
  double* BR = b.BR;
  double* BI = b.BI;
  For<0, N - 1>([&](auto k) __attribute__((always_inline)) {
    const double* column_k = Column(factors.A, N, k);
    const double* re_k = Column(factors.AR, N, k);
    const double* im_k = Column(factors.AI, N, k);
    const std::int32_t m = factors.IP[k] - 1;
    const double t = B[m];
    if (m != k) {
      B[m] = B[k];
      B[k] = t;
    }
    const std::int32_t m_complex = factors.IP_complex[k] - 1;
    const double t_re = BR[m_complex];
    const double t_im = BI[m_complex];
    if (m_complex != k) {
      BR[m_complex] = BR[k];
      BI[m_complex] = BI[k];
      BR[k] = t_re;
      BI[k] = t_im;
    }
    constexpr std::int32_t EVEN = k + 1 + (k + 1) % 2;
    RowsBelow<N, EVEN>(
        k, [&](auto rows, std::int32_t i) __attribute__((always_inline)) {
          const auto re = rows.Load(re_k + i);
          const auto im = rows.Load(im_k + i);
          rows.Store(B + i, rows.Load(B + i) + rows.Load(column_k + i) * t);
          rows.Store(BR + i, rows.Load(BR + i) + (re * t_re - im * t_im));
          rows.Store(BI + i, rows.Load(BI + i) + (im * t_re + re * t_im));
        });
  });
}

// The back substitution keeps the right-hand sides in registers, a pair of rows in each. A step processes whole pairs:
// with the last row above the diagonal it may also change the row of the diagonal, whose component has already been
// stored and is not read again.
template <std::int32_t N>
[[gnu::always_inline]] inline void SubstituteBackward(const Factors& factors, const RightSides& b) {
  constexpr std::int32_t PAIRS = N / 2;
  RowPair B[PAIRS];
  RowPair BR[PAIRS];
  RowPair BI[PAIRS];
  For<0, PAIRS>([&](auto pair) __attribute__((always_inline)) {
    B[pair] = Two::Load(b.B + 2 * pair);
    BR[pair] = Two::Load(b.BR + 2 * pair);
    BI[pair] = Two::Load(b.BI + 2 * pair);
  });
  For<0, N>([&](auto steps_done) __attribute__((always_inline)) {
    constexpr std::int32_t k = N - 1 - steps_done;
    constexpr std::int32_t pair_k = k / 2;
    const double* column_k = Column(factors.A, N, k);
    const double* re_k = Column(factors.AR, N, k);
    const double* im_k = Column(factors.AI, N, k);
    double x = pair_k < PAIRS ? B[pair_k % PAIRS][k % 2] : b.B[k];
    double x_re = pair_k < PAIRS ? BR[pair_k % PAIRS][k % 2] : b.BR[k];
    double x_im = pair_k < PAIRS ? BI[pair_k % PAIRS][k % 2] : b.BI[k];
    x = x / column_k[k];
    DivideComplex(re_k[k], im_k[k], x_re, x_im);
    b.B[k] = x;
    b.BR[k] = x_re;
    b.BI[k] = x_im;
    const double t = -x;
    const double t_re = -x_re;
    const double t_im = -x_im;
    For<0, (k + 1) / 2>([&](auto pair) __attribute__((always_inline)) {
      const RowPair re = Two::Load(re_k + 2 * pair);
      const RowPair im = Two::Load(im_k + 2 * pair);
      B[pair] += Two::Load(column_k + 2 * pair) * t;
      BR[pair] += re * t_re - im * t_im;
      BI[pair] += im * t_re + re * t_im;
    });
  });
}

template <std::int32_t N>
void Substitute(const Factors& factors, const RightSides& b) {
  SubstituteForward<N>(factors, b);
  SubstituteBackward<N>(factors, b);
}

}  // namespace

void LuDecomposePair(std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, double* AR, double* AI,
                     std::int32_t* IP_complex, std::int32_t& zero_pivot) {
  if (n == 9 && ndim == 9) {
    zero_pivot = Factorise<9>(n, {A, IP}, {AR, AI, IP_complex});
  } else if (n == 10 && ndim == 10) {
    zero_pivot = Factorise<10>(n, {A, IP}, {AR, AI, IP_complex});
  } else if (n == 14 && ndim == 14) {
    zero_pivot = Factorise<14>(n, {A, IP}, {AR, AI, IP_complex});
  } else if (n == 15 && ndim == 15) {
    zero_pivot = Factorise<15>(n, {A, IP}, {AR, AI, IP_complex});
  } else {
    LuDecompose(n, ndim, A, IP, zero_pivot);
    if (zero_pivot == 0) LuDecomposeComplex(n, ndim, AR, AI, IP_complex, zero_pivot);
  }
}

void LuSolvePair(std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP,
                 const double* AR, const double* AI, double* BR, double* BI, const std::int32_t* IP_complex) {
  if (n == 9 && ndim == 9) {
    Substitute<9>({A, AR, AI, IP, IP_complex}, {B, BR, BI});
  } else if (n == 10 && ndim == 10) {
    Substitute<10>({A, AR, AI, IP, IP_complex}, {B, BR, BI});
  } else if (n == 14 && ndim == 14) {
    Substitute<14>({A, AR, AI, IP, IP_complex}, {B, BR, BI});
  } else if (n == 15 && ndim == 15) {
    Substitute<15>({A, AR, AI, IP, IP_complex}, {B, BR, BI});
  } else {
    LuSolve(n, ndim, A, B, IP);
    LuSolveComplex(n, ndim, AR, AI, BR, BI, IP_complex);
  }
}

}  // namespace vorlen
