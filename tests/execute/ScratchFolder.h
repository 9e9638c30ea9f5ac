#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana {

/// A folder of the test's own, with what these tests want of it besides.
class ScratchFolder : public TemporaryFolder {
 public:
  std::string operator/(const std::string& name) const { return at(name); }
  std::string read(const std::string& name) const {
    std::ostringstream contents;
    contents << std::ifstream(at(name), std::ios::binary).rdbuf();
    return contents.str();
  }
  /// Changes one byte in place; size and date stay.
  void damage(const std::string& name) const {
    const auto time = std::filesystem::last_write_time(at(name));
    std::fstream file(at(name), std::ios::in | std::ios::out | std::ios::binary);
    const auto middle = static_cast<std::streamoff>(std::filesystem::file_size(at(name)) / 2);
    file.seekg(middle);
    const int byte = file.get();
    file.seekp(middle).put(static_cast<char>(~byte));
    file.close();
    std::filesystem::last_write_time(at(name), time);
  }
};

}  // namespace corvana
