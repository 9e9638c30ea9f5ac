#include <iostream>

#include "tools/DiskTool.h"

int main(int count, char** arguments) {
  return corvana::DiskTool(std::cout, std::cerr)
      .run(std::vector<std::string>(arguments + (count > 0 ? 1 : 0), arguments + count));
}
