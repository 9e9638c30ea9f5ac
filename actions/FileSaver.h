#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A file to be replaced whole.
struct FileSave {
  std::string path;
  std::vector<std::byte> bytes;
  ZAN_FileWriter::Options options;
};

/// Where encoded files go to be written, in the order in which they are handed over. Thread: main.
class FileSaver {
 public:
  virtual ~FileSaver() = default;
  /// An error that is known at once is returned.
  virtual Outcome save(FileSave save) = 0;
  /// Returns when everything handed over before is on disk or has failed.
  virtual void finish() = 0;
};

/// Writes at once.
class DirectFileSaver final : public FileSaver {
 public:
  explicit DirectFileSaver(ZAN_FileWriter writer) : mWriter(std::move(writer)) {}
  Outcome save(FileSave save) override {
    return mWriter.write(save.path, save.bytes, save.options);
  }
  void finish() override {}

 private:
  ZAN_FileWriter mWriter;
};

}  // namespace corvana
