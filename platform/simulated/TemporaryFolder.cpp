#include "platform/simulated/TemporaryFolder.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace corvana {

namespace fs = std::filesystem;

namespace {

/// In memory where the machine has such a place: virtual years write as often as real ones, and
/// waiting for a disk proves nothing there.
fs::path parentFolder() {
  const fs::path inMemory = "/dev/shm";
  return access(inMemory.c_str(), W_OK) == 0 ? inMemory : fs::temp_directory_path();
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (parentFolder() / "corvana-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error(pattern + ": cannot be made");
  // Programs see canonical paths, so the tests compare with them.
  mPath = fs::canonical(pattern).string();
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(mPath, ignored);
}

std::string TemporaryFolder::write(const std::string& relative, const std::string& contents) const {
  const fs::path path = at(relative);
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << contents;
  if (!file.flush()) throw std::runtime_error(path.string() + ": cannot be written");
  return path.string();
}

std::string TemporaryFolder::makeFolder(const std::string& relative) const {
  fs::create_directories(at(relative));
  return at(relative);
}

}  // namespace corvana
