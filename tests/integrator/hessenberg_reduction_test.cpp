// The reduction to Hessenberg form is a similarity H = S^-1 A S. The tests rebuild S^-1 from the interchanges and the
// multipliers left below the subdiagonal and check H S^-1 v = S^-1 A v, which determines H.
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "integrator/matrix_kernels.h"
#include "integrator/plain_elimination.h"

namespace vorlen::test {

namespace {

std::size_t At(std::int32_t i) { return static_cast<std::size_t>(i); }

struct Square {
  std::int32_t n = 0;
  std::int32_t ndim = 0;
  std::vector<double> values;

  Square(std::int32_t order, std::int32_t rows) : n(order), ndim(rows), values(At(rows * order), 777.0) {}
  double& operator()(std::int32_t i, std::int32_t j) { return values[At(i + j * ndim)]; }
  double operator()(std::int32_t i, std::int32_t j) const { return values[At(i + j * ndim)]; }
};

std::vector<double> Times(const Square& a, const std::vector<double>& v) {
  std::vector<double> product(At(a.n), 0.0);
  for (std::int32_t j = 0; j < a.n; ++j) {
    for (std::int32_t i = 0; i < a.n; ++i) {
      product[At(i)] += a(i, j) * v[At(j)];
    }
  }
  return product;
}

// S^-1 v; first and last count from 1.
std::vector<double> IntoBasis(const Square& reduced, const std::vector<std::int32_t>& INT, std::int32_t first,
                              std::int32_t last, std::vector<double> v) {
  for (std::int32_t m = first; m < last - 1; ++m) {
    std::swap(v[At(m)], v[At(INT[At(m)] - 1)]);
    for (std::int32_t i = m + 1; i < last; ++i) {
      v[At(i)] -= reduced(i, m - 1) * v[At(m)];
    }
  }
  return v;
}

Square WithoutMultipliers(Square reduced, std::int32_t first, std::int32_t last) {
  for (std::int32_t m = first; m < last - 1; ++m) {
    for (std::int32_t i = m + 1; i < last; ++i) {
      reduced(i, m - 1) = 0.0;
    }
  }
  return reduced;
}

Square RandomSquare(RandomNumbers& random, std::int32_t n, std::int32_t ndim) {
  Square a(n, ndim);
  for (std::int32_t j = 0; j < n; ++j) {
    for (std::int32_t i = 0; i < n; ++i) {
      a(i, j) = random.Next();
    }
  }
  return a;
}

}  // namespace

TEST(HessenbergReduction, IsASimilarityForOrders1To30) {
  RandomNumbers random(11);
  for (std::int32_t n = 1; n <= 30; ++n) {
    SCOPED_TRACE(n);
    const Square a = RandomSquare(random, n, n + 2);
    Square reduced = a;
    std::vector<std::int32_t> INT(At(n), -9);
    ReduceToHessenberg(reduced.ndim, n, 1, n, reduced.values.data(), INT.data());
    std::vector<double> v;
    for (std::int32_t i = 0; i < n; ++i) {
      v.push_back(random.Next());
    }
    const Square h = WithoutMultipliers(reduced, 1, n);
    const std::vector<double> left = Times(h, IntoBasis(reduced, INT, 1, n, v));
    const std::vector<double> right = IntoBasis(reduced, INT, 1, n, Times(a, v));
    double largest = 0.0;
    for (double value : right) {
      largest = std::max(largest, std::abs(value));
    }
    for (std::int32_t i = 0; i < n; ++i) {
      EXPECT_NEAR(left[At(i)], right[At(i)], 1e-11 * largest) << i;
    }
    for (std::int32_t j = 0; j < n; ++j) {
      EXPECT_EQ(reduced(n, j), 777.0) << "padding";
      EXPECT_EQ(reduced(n + 1, j), 777.0) << "padding";
    }
    // The pivot is the largest of its column: no multiplier is above 1.
    for (std::int32_t m = 1; m < n - 1; ++m) {
      for (std::int32_t i = m + 1; i < n; ++i) {
        EXPECT_LE(std::abs(reduced(i, m - 1)), 1.0);
      }
    }
    EXPECT_EQ(INT[0], -9);
    EXPECT_EQ(INT.back(), -9);
  }
}

TEST(HessenbergReduction, AColumnOfZerosIsPassedOver) {
  Square a(3, 3);
  a.values = {1, 0, 0, 2, 3, 4, 5, 6, 7};
  const std::vector<double> before = a.values;
  std::vector<std::int32_t> INT(3, -9);
  ReduceToHessenberg(3, 3, 1, 3, a.values.data(), INT.data());
  EXPECT_EQ(a.values, before);
  EXPECT_EQ(INT[1], 2);
}

TEST(HessenbergReduction, ATieTakesTheTopmostRow) {
  Square a(3, 3);
  a.values = {1, 2, -2, 1, 1, 1, 1, 1, 1};
  std::vector<std::int32_t> INT(3, -9);
  ReduceToHessenberg(3, 3, 1, 3, a.values.data(), INT.data());
  EXPECT_EQ(INT[1], 2);
  EXPECT_EQ(a(2, 0), -1.0);
}

TEST(HessenbergReduction, OnlyTheRangeGivenIsReduced) {
  // Block triangular with the block of rows 2 to 5 of 6: the similarity acts on that block.
  RandomNumbers random(12);
  const std::int32_t n = 6, first = 2, last = 5;
  Square a = RandomSquare(random, n, n);
  for (std::int32_t i = 0; i < n; ++i) {
    for (std::int32_t j = 0; j < i; ++j) {
      if (j < first - 1 || i >= last) a(i, j) = 0.0;
    }
  }
  Square reduced = a;
  std::vector<std::int32_t> INT(6, -9);
  ReduceToHessenberg(n, n, first, last, reduced.values.data(), INT.data());
  const std::vector<double> v = {0.3, -0.4, 0.9, 0.1, -0.7, 0.2};
  const std::vector<double> left =
      Times(WithoutMultipliers(reduced, first, last), IntoBasis(reduced, INT, first, last, v));
  const std::vector<double> right = IntoBasis(reduced, INT, first, last, Times(a, v));
  for (std::int32_t i = 0; i < n; ++i) {
    EXPECT_NEAR(left[At(i)], right[At(i)], 1e-13);
  }
  EXPECT_EQ(INT[0], -9);
  EXPECT_EQ(INT[1], -9);
  EXPECT_EQ(INT[4], -9);
  EXPECT_EQ(INT[5], -9);
}

}  // namespace vorlen::test
