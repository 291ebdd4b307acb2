// The error buffer next to memory without access.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr std::size_t BUFFER_SIZE = VORLEN_ERROR_BUFFER_SIZE;

// A buffer at the end of a page, followed by a page without access: reading or writing a byte after the buffer crashes.
struct BufferAtTheEdge {
  std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  char* buffer = static_cast<char*>(pages) + page - BUFFER_SIZE;

  BufferAtTheEdge() { EXPECT_EQ(0, mprotect(static_cast<char*>(pages) + page, page, PROT_NONE)); }
  BufferAtTheEdge(const BufferAtTheEdge&) = delete;
  BufferAtTheEdge& operator=(const BufferAtTheEdge&) = delete;
  ~BufferAtTheEdge() { munmap(pages, 2 * page); }
};

TEST(ErrorBufferAtTheEdge, NothingAfterItIsTouched) {
  const BufferAtTheEdge edge;
  ASSERT_NE(MAP_FAILED, edge.pages);
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, BUFFER_SIZE - 40, BUFFER_SIZE, std::size_t{5000}}) {
    EXPECT_EQ(1, runSurfChem(std::string(length, 'x').c_str(), "", edge.buffer));
    const std::string text = "Error reading file " + std::string(length, 'x') + "\nFailed to open file";
    EXPECT_EQ(text.substr(0, BUFFER_SIZE - 1), edge.buffer);
  }
}

TEST(ErrorBufferAtTheEdge, ASuccessDoesNotTouchIt) {
  const TempFolder folder;
  const std::string recipe = RecipeBuilder({.stress_model = "relax"}).write(folder.path("recipe.xml"));
  const BufferAtTheEdge edge;
  ASSERT_NE(MAP_FAILED, edge.pages);
  // Memory that cannot even be read.
  ASSERT_EQ(0, mprotect(edge.pages, edge.page, PROT_NONE));
  EXPECT_EQ(0, runSurfChem(recipe.c_str(), folder.path("out.txt").c_str(), edge.buffer));
}

}  // namespace
}  // namespace vorlen_test
