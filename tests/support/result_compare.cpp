#include "support/result_compare.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "support/libm_probe.h"

namespace vorlen_test {

namespace {

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
// and a step of the integrator may cross a change of stage; so the rows beside are taken in as well.
double distance(const std::vector<Row>& rows, double t, std::size_t column, double v) {
  const auto at =
      std::lower_bound(rows.begin(), rows.end(), t, [](const Row& row, double time) { return row[0] < time; });
  const auto first = at - rows.begin() > 2 ? at - 2 : rows.begin();
  const auto last = rows.end() - at > 2 ? at + 2 : rows.end();
  double low = INFINITY, high = -INFINITY;
  for (auto row = first; row != last; ++row) {
    low = std::min(low, (*row)[column]);
    high = std::max(high, (*row)[column]);
  }
  return std::max({low - v, v - high, 0.0});
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
                                                 double tolerance) {
  const Table want = parse(expected);
  const Table got = parse(actual);
  if (want.heads != got.heads) return testing::AssertionFailure() << "layers or headings differ";
  double thickest = 0.0;
  for (double v : want.thickness) thickest = std::max(thickest, std::abs(v));
  for (std::size_t i = 0; i < want.thickness.size(); ++i) {
    if (!(std::abs(want.thickness[i] - got.thickness[i]) <= tolerance * thickest)) {
      return testing::AssertionFailure() << want.heads[i + 2] << ": thickness " << got.thickness[i] << ", expected "
                                         << want.thickness[i];
    }
  }
  if (want.rows.empty() || got.rows.empty()) {
    return want.rows.empty() == got.rows.empty() ? testing::AssertionSuccess()
                                                 : testing::AssertionFailure() << "rows in one file alone";
  }
  std::string worst;
  double worst_size = tolerance;
  for (std::size_t column = 1; column < want.rows[0].size(); ++column) {
    double scale = 0.0;
    for (const Row& row : want.rows) scale = std::max(scale, std::abs(row[column]));
    if (column >= FIRST_FRACTION && column <= LAST_FRACTION) scale = 1.0;
    scale = std::max(scale, STRAIN_SCALE_MIN);
    for (const Row& row : want.rows) {
      if (std::isnan(row[column])) continue;
      const double size = distance(got.rows, row[0], column, row[column]) / scale;
      if (!(size <= worst_size)) {
        worst_size = size;
        std::ostringstream place;
        place << "column " << column + 1 << " at " << row[0] << " s: off by " << size << " of its scale, tolerance "
              << tolerance;
        worst = place.str();
      }
    }
  }
  return worst.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << worst;
}

testing::AssertionResult same_result(const std::string& expected, const std::string& actual, double tolerance) {
  if (announced_libm_matches_reference()) return same_text(expected, actual);
  return same_layers_and_columns(expected, actual, tolerance);
}

}  // namespace vorlen_test
