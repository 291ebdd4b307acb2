#include "support/result_compare.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "support/libm_probe.h"

namespace vorlen_test {

namespace {

constexpr std::size_t DEPTH = 1;
constexpr std::size_t FIRST_FRACTION = 3, LAST_FRACTION = 5;  // columns xIn, xGa, xAl, from 0
constexpr double STRAIN_SCALE_MIN = 1e-3;

using Row = std::vector<double>;

struct Table {
  std::vector<std::string> heads;  // layer lines without their last word, and the heading
  std::vector<double> thickness;   // last word of each layer line, nm
  std::vector<Row> rows;
};

Table parse(const std::string& text) {
  Table table;
  std::istringstream lines(text);
  std::string line;
  bool in_rows = false;
  while (std::getline(lines, line)) {
    if (in_rows) {
      Row row;
      std::istringstream words(line);
      for (std::string word; words >> word;) row.push_back(std::strtod(word.c_str(), nullptr));
      table.rows.push_back(row);
    } else if (line.rfind("\"VORLEN", 0) == std::string::npos && line[0] == '"') {
      const std::size_t blank = line.rfind(' ');
      table.heads.push_back(line.substr(0, blank));
      table.thickness.push_back(std::strtod(line.c_str() + blank, nullptr));
    } else {
      table.heads.push_back(line);
      in_rows = line.rfind("#time", 0) == 0;
    }
  }
  return table;
}

// Distance of v to what lies between the rows around time t. Rows of pre- and post-stages make steps at equal times,
// and a step of the integrator may cross a change of stage; so the rows beside are taken in as well. A NaN is at no
// distance from a NaN, and at an infinite one from anything else.
double distance(const std::vector<Row>& rows, double t, std::size_t column, double v) {
  const auto at =
      std::lower_bound(rows.begin(), rows.end(), t, [](const Row& row, double time) { return row[0] < time; });
  const auto first = at - rows.begin() > 2 ? at - 2 : rows.begin();
  const auto last = rows.end() - at > 2 ? at + 2 : rows.end();
  double low = INFINITY, high = -INFINITY;
  bool has_nan = false;
  for (auto row = first; row != last; ++row) {
    has_nan = has_nan || std::isnan((*row)[column]);
    low = std::fmin(low, (*row)[column]);
    high = std::fmax(high, (*row)[column]);
  }
  if (std::isnan(v)) return has_nan ? 0.0 : INFINITY;
  return std::max({low - v, v - high, 0.0});
}

bool has_nan(const Table& table, std::size_t column) {
  return std::any_of(table.rows.begin(), table.rows.end(), [=](const Row& row) { return std::isnan(row[column]); });
}

// Mean of a column over the depth, by the trapezoidal rule.
double mean_over_depth(const Table& table, std::size_t column) {
  double sum = 0.0;
  for (std::size_t i = 1; i < table.rows.size(); ++i) {
    const Row &a = table.rows[i - 1], &b = table.rows[i];
    sum += 0.5 * (a[column] + b[column]) * (b[DEPTH] - a[DEPTH]);
  }
  return sum / (table.rows.back()[DEPTH] - table.rows.front()[DEPTH]);
}

}  // namespace

testing::AssertionResult same_text(const std::string& expected, const std::string& actual) {
  const auto unsigned_nan = [](std::string text) {
    for (std::size_t at = 0; (at = text.find("-nan", at)) != std::string::npos;) text.erase(at, 1);
    return text;
  };
  const std::string want = unsigned_nan(expected);
  const std::string got = unsigned_nan(actual);
  if (want == got) return testing::AssertionSuccess();
  std::istringstream a(want), b(got);
  std::string x, y;
  for (int number = 1;; ++number) {
    const bool more_a = static_cast<bool>(std::getline(a, x));
    const bool more_b = static_cast<bool>(std::getline(b, y));
    if (!more_a && !more_b) return testing::AssertionFailure() << "line ends differ";
    if (more_a != more_b || x != y) {
      return testing::AssertionFailure() << "line " << number << "\nexpected: " << (more_a ? x : "(end)")
                                         << "\ngot:      " << (more_b ? y : "(end)");
    }
  }
}

testing::AssertionResult same_layers_and_columns(const std::string& expected, const std::string& actual,
                                                 const ResultTolerance& tolerance) {
  const Table want = parse(expected);
  const Table got = parse(actual);
  if (want.heads != got.heads) return testing::AssertionFailure() << "layers or headings differ";
  double thickest = 0.0;
  for (double v : want.thickness) thickest = std::fmax(thickest, std::abs(v));
  for (std::size_t i = 0; i < want.thickness.size(); ++i) {
    const double a = want.thickness[i], b = got.thickness[i];
    if (!(std::abs(a - b) <= tolerance.thickness * thickest || (std::isnan(a) && std::isnan(b)))) {
      return testing::AssertionFailure() << want.heads[i + 2] << ": thickness " << b << ", expected " << a;
    }
  }
  if (want.rows.empty() || got.rows.empty()) {
    return want.rows.empty() == got.rows.empty() ? testing::AssertionSuccess()
                                                 : testing::AssertionFailure() << "rows in one file alone";
  }
  for (const Row& row : got.rows) {
    if (row.size() != want.rows[0].size()) return testing::AssertionFailure() << "a row with missing columns";
    if (std::isnan(row[0])) return testing::AssertionFailure() << "a row without a time";
  }
  if (std::abs(got.rows.back()[0] - want.rows.back()[0]) > 1e-9 * std::abs(want.rows.back()[0])) {
    return testing::AssertionFailure() << "the last row is at " << got.rows.back()[0] << " s, expected "
                                       << want.rows.back()[0] << " s";
  }
  for (std::size_t column = 1; column < want.rows[0].size(); ++column) {
    if (has_nan(want, column) != has_nan(got, column)) {
      return testing::AssertionFailure() << "column " << column + 1 << ": NaN in one file alone";
    }
    double scale = STRAIN_SCALE_MIN;
    for (const Row& row : want.rows) scale = std::fmax(scale, std::abs(row[column]));
    double allowed = tolerance.column;
    if (column >= FIRST_FRACTION && column <= LAST_FRACTION) {
      const double off = std::abs(mean_over_depth(got, column) - mean_over_depth(want, column));
      if (off > tolerance.mean_fraction) {
        return testing::AssertionFailure() << "column " << column + 1 << ": mean over the depth off by " << off
                                           << ", tolerance " << tolerance.mean_fraction;
      }
      scale = 1.0;
      allowed = tolerance.fraction;
    }
    for (const Row& row : want.rows) {
      const double size = distance(got.rows, row[0], column, row[column]) / scale;
      if (!(size <= allowed)) {
        return testing::AssertionFailure() << "column " << column + 1 << " at " << row[0] << " s: off by " << size
                                           << " of its scale, tolerance " << allowed;
      }
    }
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult same_result(const std::string& expected, const std::string& actual,
                                     const ResultTolerance& tolerance) {
  if (announced_libm_matches_reference()) return same_text(expected, actual);
  return same_layers_and_columns(expected, actual, tolerance);
}

}  // namespace vorlen_test
