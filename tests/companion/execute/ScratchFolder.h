#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace corvana {

/// A folder of the test's own, gone with it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "corvana.XXXXXX";
    mPath = ::mkdtemp(pattern.data());
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return mPath; }
  std::string operator/(const std::string& name) const { return mPath + "/" + name; }

  void write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = *this / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }
  std::string read(const std::string& name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string mPath;
};

}  // namespace corvana
