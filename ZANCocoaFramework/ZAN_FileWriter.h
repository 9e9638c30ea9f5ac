#pragma once

#include <functional>
#include <span>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

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
  /// then. Whoever waits is let in before one that has just released it and takes it again, by a
  /// second file beside it.
  static Result<ZAN_FileLock> acquire(const std::string& path, double seconds,
                                      const std::function<void(double)>& pause);

  /// The lock of that file, held by a descriptor that an earlier program has left to this process,
  /// which is taken over or closed. An error when it is none.
  static Result<ZAN_FileLock> adopt(std::optional<int> descriptor, const std::string& path);

  void release() { mFile.close(); }
  int descriptor() const { return mFile.get(); }

 private:
  explicit ZAN_FileLock(ZAN_Descriptor file) : mFile(std::move(file)) {}
  /// Without minding who waits; `patience` in seconds.
  static Result<ZAN_FileLock> take(const std::string& path, double patience,
                                   const std::function<void(double)>& pause);

  ZAN_Descriptor mFile;
};

/// Writes files whole: whoever reads, and whatever is left after a crash or a full disk at any
/// instant, is the old file or the new one, never a part.
///
/// The bytes go to a temporary file in a hidden folder of the same file system, are synchronised,
/// given their attributes and renamed over the old file, and the folder is synchronised. Where that
/// folder cannot serve (another file system) the temporary file lies beside the target for the
/// moment. A target that is a symbolic link stays one: what it points to is replaced. Thread: any;
/// several writers, in several programs too, do not disturb each other.
class ZAN_FileWriter {
 public:
  enum class Step { createTemporary, write, setAttributes, synchronise, rename, synchroniseFolder };
  /// Called before each step with the path of the target; a large file has several `write` steps. A
  /// number other than 0 is taken as the errno with which the step fails.
  using StepHook = std::function<int(Step, const std::string& path)>;

  struct Attributes {
    /// Given to the file whatever the umask; without it an existing file's mode is kept, and a new
    /// one gets 0666 less the umask.
    std::optional<unsigned> mode;
    std::optional<ZAN_FinderInfo> finderInfo;  ///< left out where the file system has no attributes
  };
  struct Options {
    Attributes attributes;
    /// Without it the file may be the old one after a power failure, but disks may sleep.
    bool synchronise = true;
  };

  /// `temporaryFolder` is created (0700) when first needed; empty: always beside the target.
  explicit ZAN_FileWriter(std::string temporaryFolder, StepHook hook = {});

  /// Fails with `unwritable`, the old file untouched. Once the new file is in place only
  /// synchronising the folder can still fail, which is reported too.
  Outcome write(const std::string& path, std::span<const std::byte> bytes,
                const Options& options) const;
  Outcome write(const std::string& path, std::string_view text, const Options& options) const;

  /// Removes what writers that no longer live have left in the temporary folder; files that a
  /// living writer of any program still holds stay.
  void removeLeftOvers() const;

 private:
  int step(Step step, const std::string& path) const;
  /// An errno, 0 when done.
  int writeVia(const std::string& temporary, const std::string& path,
               std::span<const std::byte> bytes, const Options& options) const;

  std::string mTemporaryFolder;
  StepHook mHook;
};

}  // namespace corvana
