#include <iostream>

#include "command/Commands.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
  return corvana::runCommandLine(words, {std::cin, std::cout, std::cerr});
}
