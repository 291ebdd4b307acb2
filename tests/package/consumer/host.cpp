// host_cpp RECIPE RESULT: a small host in C++ against the installed library.
#include <vorlen_solver.h>

#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::vector<char> text(VORLEN_ERROR_BUFFER_SIZE);
  if (runSurfChem(argv[1], argv[2], text.data()) != 0) {
    std::cerr << text.data() << '\n';
    return 1;
  }
  std::cout << "grown\n";
}
