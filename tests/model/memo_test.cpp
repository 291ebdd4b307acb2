// The memo: which inputs find a kept value, how many values are kept, and what the switch does.
#include "model/memo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace vorlen;

namespace {

struct Inputs {
  double a, b;
};

// A function that counts its computations.
class Doubling {
 public:
  double get(double a, double b = 0.0, bool reuse = true) {
    return memo_.get({a, b}, reuse, [this, a](double& value) {
      ++computations;
      value = 2.0 * a;
    });
  }
  double last() { return memo_.last(); }

  int computations = 0;

 private:
  Memo<Inputs, double, 2> memo_;
};

}  // namespace

TEST(Memo, AValueIsComputedOnceForTheSameInputs) {
  Doubling f;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(f.get(3.0), 6.0);
  EXPECT_EQ(f.computations, 1);
}

TEST(Memo, EveryInputCounts) {
  Doubling f;
  f.get(3.0, 1.0);
  f.get(3.0, 2.0);
  EXPECT_EQ(f.computations, 2);
  f.get(3.0, std::nextafter(2.0, 3.0));
  EXPECT_EQ(f.computations, 3) << "one bit is a difference";
}

TEST(Memo, InputsThatAreAllZeroAreNotFoundInAnEmptyMemo) {
  Doubling f;
  EXPECT_EQ(f.get(0.0), 0.0);
  EXPECT_EQ(f.computations, 1);
}

TEST(Memo, ZerosOfEitherSignAreDifferentInputs) {
  Doubling f;
  EXPECT_FALSE(std::signbit(f.get(0.0)));
  EXPECT_TRUE(std::signbit(f.get(-0.0)));
  EXPECT_EQ(f.computations, 2);
}

TEST(Memo, ANaNIsFoundAgain) {
  Doubling f;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(std::isnan(f.get(nan)));
  EXPECT_EQ(f.computations, 1);
}

TEST(Memo, ANewValueReplacesTheOldestOne) {
  Doubling f;
  f.get(1.0);
  f.get(2.0);
  f.get(1.0);
  EXPECT_EQ(f.computations, 2);
  f.get(3.0);  // in the place of 1, the first that was computed
  EXPECT_EQ(f.computations, 3);
  f.get(2.0);
  EXPECT_EQ(f.computations, 3);
  EXPECT_EQ(f.get(1.0), 2.0);
  EXPECT_EQ(f.computations, 4);
}

TEST(Memo, WithTheSwitchOffEveryCallComputes) {
  Doubling f;
  f.get(1.0);
  for (int i = 0; i < 3; ++i) f.get(1.0, 0.0, false);
  EXPECT_EQ(f.computations, 4);
}

TEST(Memo, TheLastValueIsThatOfTheLastCall) {
  Doubling f;
  f.get(1.0);
  f.get(2.0);
  EXPECT_EQ(f.last(), 4.0);
  f.get(1.0);
  EXPECT_EQ(f.last(), 2.0);
}

TEST(Memo, AReplacedValueStartsFromItsDefaults) {
  // As does a memo inside of a value: its values belong to the inputs of the outer one.
  struct Terms {
    int count = 0;
    Memo<double, double, 2> inner;
  };
  Memo<double, Terms, 1> memo;
  int inner_computations = 0;
  for (double outer : {1.0, 2.0, 1.0}) {
    Terms& terms = memo.get(outer, true, [](Terms& t) { ++t.count; });
    EXPECT_EQ(terms.count, 1);
    const double value = terms.inner.get(5.0, true, [&](double& v) {
      ++inner_computations;
      v = 5.0 * outer;
    });
    EXPECT_EQ(value, 5.0 * outer);
  }
  EXPECT_EQ(inner_computations, 3);
}
