// The factorisations and solves: random matrices compared with plain elimination in long double, then edge cases,
// whose expected values are computed manually.
#include "integrator/matrix_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "integrator/plain_elimination.h"

namespace vorlen::test {

namespace {

constexpr double PADDING = 12345.0;  // in rows after the matrix
constexpr double UNSET = -98765.0;   // where no value is needed
constexpr std::int32_t UNSET_PIVOT = -5;
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

enum class Storage { DENSE, HESS, BAND };

std::size_t At(std::int32_t i) { return static_cast<std::size_t>(i); }

// A matrix in the storage of a kernel family, with its right side.
struct Packed {
  Storage storage = Storage::DENSE;
  bool is_complex = false;
  std::int32_t n = 0;
  std::int32_t ndim = 0;
  std::int32_t lower = 0;
  std::int32_t upper = 0;
  std::vector<double> re, im, b_re, b_im;
  std::vector<std::int32_t> IP;
  std::int32_t zero_pivot = -1;

  Packed(Storage storage_kind, bool complex_numbers, const PlainMatrix& matrix, std::int32_t lower_width,
         std::int32_t upper_width, std::int32_t extra_rows = 3)
      : storage(storage_kind),
        is_complex(complex_numbers),
        n(static_cast<std::int32_t>(matrix.size())),
        ndim((storage == Storage::BAND ? 2 * lower_width + upper_width + 1 : n) + extra_rows),
        lower(lower_width),
        upper(upper_width),
        re(At(ndim * n), storage == Storage::BAND ? UNSET : 0.0),
        im(re),
        b_re(At(n)),
        b_im(At(n)),
        IP(At(n), UNSET_PIVOT) {
    for (std::int32_t j = 0; j < n; ++j) {
      for (std::int32_t row = ndim - extra_rows; row < ndim; ++row) {
        re[At(row + j * ndim)] = PADDING;
        im[At(row + j * ndim)] = PADDING;
      }
      for (std::int32_t i = 0; i < n; ++i) {
        if (storage == Storage::BAND && (i - j > lower || j - i > upper)) continue;
        const Complex& entry = matrix[At(i)][At(j)];
        re[Position(i, j)] = static_cast<double>(entry.real());
        im[Position(i, j)] = static_cast<double>(entry.imag());
      }
    }
  }

  std::size_t Position(std::int32_t i, std::int32_t j) const {
    return At((storage == Storage::BAND ? i - j + lower + upper : i) + j * ndim);
  }

  void Factorise() {
    double* A = re.data();
    double* AI = im.data();
    std::int32_t* P = IP.data();
    switch (storage) {
      case Storage::DENSE:
        is_complex ? LuDecomposeComplex(n, ndim, A, AI, P, zero_pivot) : LuDecompose(n, ndim, A, P, zero_pivot);
        break;
      case Storage::HESS:
        is_complex ? LuDecomposeHessComplex(n, ndim, A, AI, lower, P, zero_pivot)
                   : LuDecomposeHess(n, ndim, A, lower, P, zero_pivot);
        break;
      case Storage::BAND:
        is_complex ? LuDecomposeBandComplex(n, ndim, A, AI, lower, upper, P, zero_pivot)
                   : LuDecomposeBand(n, ndim, A, lower, upper, P, zero_pivot);
        break;
    }
  }

  void Solve(const PlainVector& b) {
    for (std::int32_t i = 0; i < n; ++i) {
      b_re[At(i)] = static_cast<double>(b[At(i)].real());
      b_im[At(i)] = static_cast<double>(b[At(i)].imag());
    }
    const double* A = re.data();
    const double* AI = im.data();
    double* B = b_re.data();
    double* BI = b_im.data();
    const std::int32_t* P = IP.data();
    switch (storage) {
      case Storage::DENSE:
        is_complex ? LuSolveComplex(n, ndim, A, AI, B, BI, P) : LuSolve(n, ndim, A, B, P);
        break;
      case Storage::HESS:
        is_complex ? LuSolveHessComplex(n, ndim, A, AI, lower, B, BI, P) : LuSolveHess(n, ndim, A, lower, B, P);
        break;
      case Storage::BAND:
        is_complex ? LuSolveBandComplex(n, ndim, A, AI, lower, upper, B, BI, P)
                   : LuSolveBand(n, ndim, A, lower, upper, B, P);
        break;
    }
  }

  Complex Determinant() const {
    Complex product = static_cast<long double>(IP[At(n - 1)]);
    for (std::int32_t k = 0; k < n; ++k) {
      product *= Complex(re[Position(k, k)], is_complex ? im[Position(k, k)] : 0.0);
    }
    return product;
  }

  bool PaddingIsUntouched(std::int32_t extra_rows = 3) const {
    for (std::int32_t j = 0; j < n; ++j) {
      for (std::int32_t row = ndim - extra_rows; row < ndim; ++row) {
        if (re[At(row + j * ndim)] != PADDING || im[At(row + j * ndim)] != PADDING) return false;
      }
    }
    return true;
  }
};

PlainMatrix FromRows(std::vector<std::vector<double>> rows) {
  PlainMatrix matrix;
  for (const auto& row : rows) {
    matrix.emplace_back(row.begin(), row.end());
  }
  return matrix;
}

std::string Name(Storage storage, bool is_complex) {
  const std::string kind = storage == Storage::DENSE ? "dense" : storage == Storage::HESS ? "Hessenberg" : "band";
  return kind + (is_complex ? " complex" : " real");
}

// Calls check(storage, is_complex) for the six factorisations.
template <typename Check>
void ForEachKernel(Check check) {
  for (const Storage storage : {Storage::DENSE, Storage::HESS, Storage::BAND}) {
    for (const bool is_complex : {false, true}) {
      SCOPED_TRACE(Name(storage, is_complex));
      check(storage, is_complex);
    }
  }
}

// Random matrices lose about the logarithm of their condition; the largest here is below 1e5.
constexpr double RELATIVE_ERROR = 1e-10;

void CompareWithPlain(Storage storage, bool is_complex, const PlainMatrix& matrix, const PlainVector& b,
                      std::int32_t lower, std::int32_t upper) {
  const auto n = static_cast<std::int32_t>(b.size());
  const PlainResult expected = SolvePlain(matrix, b);
  Packed packed(storage, is_complex, matrix, lower, upper);
  packed.Factorise();
  ASSERT_EQ(packed.zero_pivot, 0);
  if (storage != Storage::BAND || lower > 0) {
    for (std::int32_t k = 0; k < n - 1; ++k) {
      EXPECT_EQ(packed.IP[At(k)], expected.pivot_rows[At(k)]) << "pivot row of step " << k + 1;
    }
  }
  EXPECT_EQ(packed.IP[At(n - 1)], expected.sign);
  const auto determinant_error = std::abs(packed.Determinant() - expected.determinant);
  EXPECT_LE(determinant_error, RELATIVE_ERROR * std::abs(expected.determinant));
  packed.Solve(b);
  long double largest = 0.0L;
  for (const Complex& value : expected.solution) {
    largest = std::max(largest, std::abs(value));
  }
  for (std::int32_t i = 0; i < n; ++i) {
    const Complex actual(packed.b_re[At(i)], is_complex ? packed.b_im[At(i)] : 0.0);
    EXPECT_LE(std::abs(actual - expected.solution[At(i)]), RELATIVE_ERROR * largest) << "component " << i + 1;
  }
  EXPECT_TRUE(packed.PaddingIsUntouched());
}

}  // namespace

TEST(MatrixKernels, DenseMatricesOfOrders1To30AgreeWithPlainElimination) {
  RandomNumbers random(1);
  for (const bool is_complex : {false, true}) {
    for (std::int32_t n = 1; n <= 30; ++n) {
      SCOPED_TRACE(Name(Storage::DENSE, is_complex) + " n = " + std::to_string(n));
      const PlainMatrix matrix = RandomMatrix(random, n, n, n, is_complex);
      CompareWithPlain(Storage::DENSE, is_complex, matrix, RandomVector(random, n, is_complex), n, n);
    }
  }
}

TEST(MatrixKernels, HessenbergMatricesOfOrders1To30AgreeWithPlainElimination) {
  RandomNumbers random(2);
  for (const bool is_complex : {false, true}) {
    for (std::int32_t n = 1; n <= 30; ++n) {
      for (const std::int32_t subdiagonals : {1, 2, 5}) {
        SCOPED_TRACE(Name(Storage::HESS, is_complex) + " n = " + std::to_string(n));
        const PlainMatrix matrix = RandomMatrix(random, n, subdiagonals, n, is_complex);
        CompareWithPlain(Storage::HESS, is_complex, matrix, RandomVector(random, n, is_complex), subdiagonals, n);
      }
    }
  }
}

TEST(MatrixKernels, BandMatricesOfOrders1To30WithFillInAgreeWithPlainElimination) {
  RandomNumbers random(3);
  for (const bool is_complex : {false, true}) {
    for (std::int32_t n = 1; n <= 30; ++n) {
      for (std::int32_t lower = 0; lower <= 4; ++lower) {
        for (std::int32_t upper = 0; upper <= 4; ++upper) {
          SCOPED_TRACE(Name(Storage::BAND, is_complex) + " n = " + std::to_string(n) + " lower " +
                       std::to_string(lower) + " upper " + std::to_string(upper));
          PlainMatrix matrix = RandomMatrix(random, n, lower, upper, is_complex);
          // Random triangles of a narrow band are near singular; a shift on the diagonal keeps exchanges and avoids
          // that.
          for (std::int32_t i = 0; i < n; ++i) {
            matrix[At(i)][At(i)] += matrix[At(i)][At(i)].real() < 0.0L ? -0.7L : 0.7L;
          }
          CompareWithPlain(Storage::BAND, is_complex, matrix, RandomVector(random, n, is_complex), lower, upper);
        }
      }
    }
  }
}

TEST(MatrixKernels, RowExchangesOfABandMatrixFillRowsAboveTheBand) {
  // Each subdiagonal entry is the pivot, so that U gets a second superdiagonal: U(1, 3) is the old A(2, 3).
  const PlainMatrix matrix = FromRows({{1, 2, 0}, {4, 5, 6}, {0, 8, 1}});
  Packed packed(Storage::BAND, false, matrix, 1, 1, 0);
  packed.Factorise();
  EXPECT_EQ(packed.zero_pivot, 0);
  EXPECT_EQ(packed.IP, (std::vector<std::int32_t>{2, 3, 1}));
  EXPECT_EQ(packed.re[packed.Position(0, 2)], 6.0);
}

TEST(MatrixKernels, ABandMatrixGivesTheSameBitsAsTheDenseOne) {
  RandomNumbers random(4);
  for (const bool is_complex : {false, true}) {
    const PlainMatrix matrix = RandomMatrix(random, 12, 2, 3, is_complex);
    const PlainVector b = RandomVector(random, 12, is_complex);
    Packed dense(Storage::DENSE, is_complex, matrix, 12, 12);
    Packed hess(Storage::HESS, is_complex, matrix, 2, 12);
    Packed band(Storage::BAND, is_complex, matrix, 2, 3);
    for (Packed* packed : {&dense, &hess, &band}) {
      packed->Factorise();
      packed->Solve(b);
    }
    EXPECT_EQ(dense.b_re, band.b_re);
    EXPECT_EQ(dense.b_re, hess.b_re);
    EXPECT_EQ(dense.IP, band.IP);
    EXPECT_EQ(dense.IP, hess.IP);
    if (is_complex) {
      EXPECT_EQ(dense.b_im, band.b_im);
      EXPECT_EQ(dense.b_im, hess.b_im);
    }
  }
}

TEST(MatrixKernels, HessenbergKernelsLeaveTheEntriesBelowTheirSubdiagonalsAlone) {
  RandomNumbers random(5);
  const std::int32_t n = 7;
  const PlainMatrix matrix = RandomMatrix(random, n, n, n, true);
  for (const bool is_complex : {false, true}) {
    Packed packed(Storage::HESS, is_complex, matrix, 1, n);
    packed.Factorise();
    for (std::int32_t j = 0; j < n; ++j) {
      for (std::int32_t i = j + 2; i < n; ++i) {
        EXPECT_EQ(packed.re[packed.Position(i, j)], static_cast<double>(matrix[At(i)][At(j)].real()));
        EXPECT_EQ(packed.im[packed.Position(i, j)], static_cast<double>(matrix[At(i)][At(j)].imag()));
      }
    }
  }
}

TEST(MatrixKernels, OrderOneIsOnlyTestedAndDivided) {
  ForEachKernel([](Storage storage, bool is_complex) {
    Packed packed(storage, is_complex, {{4.0L}}, 0, 0);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 0);
    EXPECT_EQ(packed.IP[0], 1);
    EXPECT_EQ(packed.re[0], 4.0);
    packed.Solve({10.0L});
    EXPECT_EQ(packed.b_re[0], 2.5);

    Packed singular(storage, is_complex, {{0.0L}}, 0, 0);
    singular.Factorise();
    EXPECT_EQ(singular.zero_pivot, 1);
    EXPECT_EQ(singular.IP[0], 0);
  });
}

TEST(MatrixKernels, ATieTakesTheTopmostRow) {
  ForEachKernel([](Storage storage, bool is_complex) {
    Packed packed(storage, is_complex, FromRows({{2, 1}, {-2, 3}}), 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.IP, (std::vector<std::int32_t>{1, 1}));
    EXPECT_EQ(packed.re[packed.Position(1, 0)], 1.0);  // the multiplier -(-2)/2
    EXPECT_EQ(packed.re[packed.Position(1, 1)], 4.0);
  });
}

TEST(MatrixKernels, ATieBelowTheDiagonalTakesTheUpperOfTheTwo) {
  for (const bool is_complex : {false, true}) {
    Packed packed(Storage::DENSE, is_complex, FromRows({{1, 0, 2}, {3, 1, 0}, {-3, 5, 1}}), 3, 3);
    packed.Factorise();
    EXPECT_EQ(packed.IP[0], 2);
  }
}

TEST(MatrixKernels, TheSizeOfAComplexEntryIsTheSumOfItsParts) {
  // 3 + 3i has the smaller modulus of (3 + 3i, 5) but the larger sum.
  const PlainMatrix matrix = {{Complex(5.0L), Complex(1.0L)}, {Complex(3.0L, 3.0L), Complex(0.0L)}};
  for (const Storage storage : {Storage::DENSE, Storage::HESS, Storage::BAND}) {
    Packed packed(storage, true, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.IP, (std::vector<std::int32_t>{2, -1}));
  }
}

TEST(MatrixKernels, TheLastPivotEntryIsTheSignOfThePermutation) {
  // One exchange, then two, then none.
  Packed one(Storage::DENSE, false, FromRows({{0, 1}, {1, 0}}), 2, 2);
  one.Factorise();
  EXPECT_EQ(one.IP.back(), -1);
  Packed two(Storage::DENSE, false, FromRows({{0, 0, 1}, {1, 0, 0}, {0, 1, 0}}), 3, 3);
  two.Factorise();
  EXPECT_EQ(two.IP.back(), 1);
  Packed none(Storage::DENSE, false, FromRows({{1, 0}, {0, 1}}), 2, 2);
  none.Factorise();
  EXPECT_EQ(none.IP.back(), 1);
}

TEST(MatrixKernels, AFirstColumnOfZerosEndsAtOnce) {
  ForEachKernel([](Storage storage, bool is_complex) {
    const PlainMatrix matrix = FromRows({{0, 2, 0}, {0, 3, 4}, {0, 5, 6}});
    Packed packed(storage, is_complex, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 1);
    EXPECT_EQ(packed.IP[2], 0);
    EXPECT_EQ(packed.re[packed.Position(0, 1)], 2.0);
    EXPECT_EQ(packed.re[packed.Position(1, 1)], 3.0);
    EXPECT_EQ(packed.re[packed.Position(2, 1)], 5.0);
  });
}

TEST(MatrixKernels, APivotOfZeroInTheMiddleTellsItsStep) {
  ForEachKernel([](Storage storage, bool is_complex) {
    const PlainMatrix matrix = FromRows({{2, 1, 0}, {2, 1, 3}, {0, 0, 4}});
    Packed packed(storage, is_complex, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 2);
    EXPECT_EQ(packed.IP[0], 1);
    EXPECT_EQ(packed.IP[1], 2);
    EXPECT_EQ(packed.IP[2], 0);
  });
}

TEST(MatrixKernels, AMatrixSingularInItsLastPivotHasAllEarlierColumnsEliminated) {
  ForEachKernel([](Storage storage, bool is_complex) {
    const PlainMatrix matrix = FromRows({{4, 2, 0}, {2, 3, 4}, {0, 2, 4}});
    Packed packed(storage, is_complex, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 3);
    EXPECT_EQ(packed.IP[2], 0);
    EXPECT_EQ(packed.re[packed.Position(1, 0)], -0.5);
    EXPECT_EQ(packed.re[packed.Position(1, 1)], 2.0);
    EXPECT_EQ(packed.re[packed.Position(2, 1)], -1.0);
    EXPECT_EQ(packed.re[packed.Position(2, 2)], 0.0);
  });
}

TEST(MatrixKernels, APurelyImaginaryPivotIsNotSingular) {
  for (const Storage storage : {Storage::DENSE, Storage::HESS, Storage::BAND}) {
    // i x = 1 + 2i, and a second row for the elimination: x = 2 - i, y = 3.
    const PlainMatrix matrix = {{Complex(0, 1), Complex(0)}, {Complex(0), Complex(0, -2)}};
    Packed packed(storage, true, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 0);
    packed.Solve({Complex(1, 2), Complex(0, -6)});
    EXPECT_EQ(packed.b_re[0], 2.0);
    EXPECT_EQ(packed.b_im[0], -1.0);
    EXPECT_EQ(packed.b_re[1], 3.0);
    EXPECT_EQ(packed.b_im[1], 0.0);
  }
}

TEST(MatrixKernels, PurelyRealAndPurelyImaginaryRowEntriesGiveTheValuesOfTheGeneralProduct) {
  const Complex pivot(3.5L, -1.25L);
  const Complex below(0.3L, 0.7L);
  const Complex corner(-0.2L, 0.9L);
  for (const Complex& t : {Complex(0, 0.37L), Complex(0.37L, 0), Complex(0, -1.1L), Complex(-1.1L, 0), Complex(0, 0)}) {
    const PlainMatrix matrix = {{pivot, t}, {below, corner}};
    for (const Storage storage : {Storage::DENSE, Storage::HESS, Storage::BAND}) {
      Packed packed(storage, true, matrix, 1, 1);
      packed.Factorise();
      const double l_re = packed.re[packed.Position(1, 0)];
      const double l_im = packed.im[packed.Position(1, 0)];
      const auto t_re = static_cast<double>(t.real());
      const auto t_im = static_cast<double>(t.imag());
      const double product_re = l_re * t_re - l_im * t_im;
      const double product_im = l_im * t_re + l_re * t_im;
      EXPECT_EQ(packed.re[packed.Position(1, 1)], static_cast<double>(corner.real()) + product_re);
      EXPECT_EQ(packed.im[packed.Position(1, 1)], static_cast<double>(corner.imag()) + product_im);
    }
  }
}

TEST(MatrixKernels, APivotThatIsNotANumberPasses) {
  ForEachKernel([](Storage storage, bool is_complex) {
    PlainMatrix matrix = FromRows({{NOT_A_NUMBER, 1}, {0, 1}});
    Packed packed(storage, is_complex, matrix, 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 0);
    EXPECT_EQ(packed.IP[0], 1);
    EXPECT_TRUE(std::isnan(packed.re[packed.Position(1, 0)]));
  });
}

TEST(MatrixKernels, ANearZeroPivotPasses) {
  ForEachKernel([](Storage storage, bool is_complex) {
    Packed packed(storage, is_complex, FromRows({{1e-300, 0}, {0, 1e-300}}), 1, 1);
    packed.Factorise();
    EXPECT_EQ(packed.zero_pivot, 0);
  });
}

TEST(MatrixKernels, ABandWithoutSubdiagonalsTestsOnlyTheLastPivot) {
  for (const bool is_complex : {false, true}) {
    Packed zero_inside(Storage::BAND, is_complex, FromRows({{0, 1, 0}, {0, 2, 1}, {0, 0, 3}}), 0, 1);
    zero_inside.Factorise();
    EXPECT_EQ(zero_inside.zero_pivot, 0);
    EXPECT_EQ(zero_inside.IP, (std::vector<std::int32_t>{UNSET_PIVOT, UNSET_PIVOT, 1}));
    Packed zero_last(Storage::BAND, is_complex, FromRows({{1, 1, 0}, {0, 2, 1}, {0, 0, 0}}), 0, 1);
    zero_last.Factorise();
    EXPECT_EQ(zero_last.zero_pivot, 3);
    EXPECT_EQ(zero_last.IP, (std::vector<std::int32_t>{UNSET_PIVOT, UNSET_PIVOT, 0}));
  }
}

TEST(MatrixKernels, SolvesLeaveTheFactorsAndThePivotsAlone) {
  RandomNumbers random(6);
  ForEachKernel([&random](Storage storage, bool is_complex) {
    const PlainMatrix matrix = RandomMatrix(random, 6, 2, 2, is_complex);
    Packed packed(storage, is_complex, matrix, 2, 2);
    packed.Factorise();
    const Packed before = packed;
    packed.Solve(RandomVector(random, 6, is_complex));
    EXPECT_EQ(packed.re, before.re);
    EXPECT_EQ(packed.im, before.im);
    EXPECT_EQ(packed.IP, before.IP);
  });
}

TEST(MatrixKernels, ABandMatrixWiderThanItsOrderIsSolved) {
  RandomNumbers random(7);
  for (const bool is_complex : {false, true}) {
    const PlainMatrix matrix = RandomMatrix(random, 3, 5, 6, is_complex);
    CompareWithPlain(Storage::BAND, is_complex, matrix, RandomVector(random, 3, is_complex), 5, 6);
  }
}

}  // namespace vorlen::test
