// The reference of the kernel tests: textbook elimination by rows on vectors of vectors in long double, and matrices
// of random numbers from a fixed seed.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace vorlen::test {

using Complex = std::complex<long double>;
using PlainMatrix = std::vector<std::vector<Complex>>;  // [row][column]
using PlainVector = std::vector<Complex>;

struct PlainResult {
  PlainVector solution;
  std::vector<std::int32_t> pivot_rows;  // from 1
  int sign = 1;                          // of the row permutation
  Complex determinant = 1.0L;
};

inline long double PivotSize(const Complex& value) { return std::abs(value.real()) + std::abs(value.imag()); }

inline PlainResult SolvePlain(PlainMatrix a, PlainVector b) {
  PlainResult result;
  const std::size_t n = b.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t m = k;
    for (std::size_t i = k + 1; i < n; ++i) {
      if (PivotSize(a[i][k]) > PivotSize(a[m][k])) m = i;
    }
    result.pivot_rows.push_back(static_cast<std::int32_t>(m + 1));
    if (m != k) {
      std::swap(a[m], a[k]);
      std::swap(b[m], b[k]);
      result.sign = -result.sign;
    }
    result.determinant *= a[k][k];
    for (std::size_t i = k + 1; i < n; ++i) {
      const Complex factor = a[i][k] / a[k][k];
      for (std::size_t j = k; j < n; ++j) {
        a[i][j] -= factor * a[k][j];
      }
      b[i] -= factor * b[k];
    }
  }
  result.determinant *= static_cast<long double>(result.sign);
  result.solution.resize(n);
  for (std::size_t k = n; k-- > 0;) {
    Complex sum = b[k];
    for (std::size_t j = k + 1; j < n; ++j) {
      sum -= a[k][j] * result.solution[j];
    }
    result.solution[k] = sum / a[k][k];
  }
  return result;
}

// Numbers in [-1, 1), the same on every platform.
class RandomNumbers {
 public:
  explicit RandomNumbers(std::uint32_t seed) : generator_(seed) {}
  double Next() { return static_cast<double>(generator_()) / 2147483648.0 - 1.0; }

 private:
  std::mt19937 generator_;
};

// Entries outside of lower subdiagonals and upper superdiagonals are zero; about one in four is purely real and one in
// four purely imaginary. With is_complex false all are real.
inline PlainMatrix RandomMatrix(RandomNumbers& random, std::int32_t n, std::int32_t lower, std::int32_t upper,
                                bool is_complex) {
  PlainMatrix matrix(static_cast<std::size_t>(n), PlainVector(static_cast<std::size_t>(n), Complex(0.0L)));
  for (std::int32_t i = 0; i < n; ++i) {
    for (std::int32_t j = 0; j < n; ++j) {
      if (i - j > lower || j - i > upper) continue;
      const double re = random.Next();
      const double im = random.Next();
      const double kind = random.Next();
      Complex& entry = matrix[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)];
      if (!is_complex || kind < -0.5) {
        entry = re;
      } else if (kind < 0.0) {
        entry = Complex(0.0L, im);
      } else {
        entry = Complex(re, im);
      }
    }
  }
  return matrix;
}

inline PlainVector RandomVector(RandomNumbers& random, std::int32_t n, bool is_complex) {
  PlainVector vector;
  for (std::int32_t i = 0; i < n; ++i) {
    const double re = random.Next();
    const double im = random.Next();
    vector.emplace_back(re, is_complex ? im : 0.0);
  }
  return vector;
}

}  // namespace vorlen::test
