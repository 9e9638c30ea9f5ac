#include <iostream>
#include <string>
#include <vector>

#include "tools/AliasTool.h"

int main(int count, char** arguments) {
  return corvana::AliasTool(std::cin, std::cerr)
      .run(std::vector<std::string>(arguments + (count > 0 ? 1 : 0), arguments + count));
}
