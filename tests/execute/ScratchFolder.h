#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana {

/// A folder of the test's own, with what these tests want of it besides.
class ScratchFolder : public TemporaryFolder {
 public:
  std::string operator/(const std::string& name) const { return at(name); }
  std::string read(const std::string& name) const {
    std::ifstream file(at(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

}  // namespace corvana
