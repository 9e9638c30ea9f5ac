#pragma once

#include <functional>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// An advisory lock between programs, held by an open file: it goes with the object, and with the
/// process however that ends. Two objects exclude each other within one program too. Thread: any;
/// an object belongs to one thread at a time.
class ZAN_FileLock {
 public:
  /// Holds nothing.
  ZAN_FileLock() = default;

  /// Takes the lock of that file, which is created (with its folder) when missing and never
  /// removed. While another holds it, tries again after each `pause`, which blocks for the given
  /// number of seconds, until `seconds` have passed in pauses. `unavailable` when it is still held
  /// then.
  static Result<ZAN_FileLock> acquire(const std::string& path, double seconds,
                                      const std::function<void(double)>& pause);

  bool isHeld() const { return static_cast<bool>(mFile); }
  void release() { mFile.close(); }

 private:
  explicit ZAN_FileLock(ZAN_Descriptor file) : mFile(std::move(file)) {}

  ZAN_Descriptor mFile;
};

}  // namespace corvana
