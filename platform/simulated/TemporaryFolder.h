#pragma once

#include <string>

namespace corvana {

/// A fresh folder of the real file system that goes away with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::string& path() const { return mPath; }
  /// Full path of something in it; nothing is made.
  std::string at(const std::string& relative) const { return mPath + "/" + relative; }
  /// Writes a file and the folders it needs; returns its full path.
  std::string write(const std::string& relative, const std::string& contents) const;
  /// Makes a folder and those above it; returns its full path.
  std::string makeFolder(const std::string& relative) const;

 private:
  std::string mPath;
};

}  // namespace corvana
