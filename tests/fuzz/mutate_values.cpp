// Mutations that keep the input well-formed. With changed bytes, almost every input fails in the XML parser. So every
// other mutation replaces an attribute value by a number or a word that the reader knows, or repeats or removes an
// element.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

constexpr const char* VALUES[] = {"0",
                                  "-0",
                                  "1",
                                  "-1",
                                  "2",
                                  "3",
                                  "0.5",
                                  "1e-3",
                                  "1e-4",
                                  "0.99999e-4",
                                  "1e-5",
                                  "1e-6",
                                  "1e-10",
                                  "-1e-10",
                                  "1e-11",
                                  "1e-300",
                                  "4.9e-324",
                                  "2.2e-308",
                                  "1e308",
                                  "-1e308",
                                  "1e309",
                                  "-1e309",
                                  "nan",
                                  "-nan",
                                  "inf",
                                  "-inf",
                                  "0x1p3",
                                  "1e3",
                                  "999.999",
                                  "1000",
                                  "1e5",
                                  "1e8",
                                  "1e20",
                                  "2147483647",
                                  "-2147483648",
                                  "9999",
                                  "10000",
                                  "1.0000001",
                                  "1.0000000001",
                                  "3.189",
                                  "3.112",
                                  "3.533",
                                  "273.15",
                                  "1300",
                                  "89.99",
                                  "90",
                                  "15.5",
                                  "",
                                  " 1",
                                  "1,5",
                                  "1abc",
                                  "abc",
                                  "InGaN",
                                  "AlGaN",
                                  "AlInN",
                                  "AlInGaN",
                                  "relax",
                                  "V_dislocation",
                                  "fixed_thickness",
                                  "thick_GaN",
                                  "InGaN_GR_X",
                                  "InGaN_GR",
                                  "CCS",
                                  "TDR",
                                  "HFR",
                                  "given",
                                  "inherited",
                                  "periodic",
                                  "single",
                                  "vacancy_In",
                                  "vacancy_none"};

struct Span {
  std::size_t begin, end;
};

// The quoted strings of the text.
std::vector<Span> values_of(const std::string& text) {
  std::vector<Span> spans;
  for (std::size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 1)) {
    const std::size_t end = text.find('"', at + 1);
    if (end == std::string::npos) break;
    spans.push_back({at + 1, end});
    at = end;
  }
  return spans;
}

// The empty elements of the text, <a ... />.
std::vector<Span> elements_of(const std::string& text) {
  std::vector<Span> spans;
  for (std::size_t end = text.find("/>"); end != std::string::npos; end = text.find("/>", end + 2)) {
    const std::size_t begin = text.rfind('<', end);
    if (begin != std::string::npos) spans.push_back({begin, end + 2});
  }
  return spans;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned int seed) {
  std::minstd_rand random(seed);
  const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random()) % n; };
  if (below(2) == 0) return LLVMFuzzerMutate(data, size, max_size);
  std::string text(reinterpret_cast<const char*>(data), size);
  const bool whole_element = below(8) == 0;
  const std::vector<Span> spans = whole_element ? elements_of(text) : values_of(text);
  if (spans.empty()) return LLVMFuzzerMutate(data, size, max_size);
  const Span span = spans[below(spans.size())];
  if (!whole_element) {
    text.replace(span.begin, span.end - span.begin, VALUES[below(std::size(VALUES))]);
  } else if (below(2) == 0) {
    text.erase(span.begin, span.end - span.begin);
  } else {
    text.insert(spans[below(spans.size())].begin, text.substr(span.begin, span.end - span.begin));
  }
  size = text.size() < max_size ? text.size() : max_size;
  std::memcpy(data, text.data(), size);
  return size;
}
