#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/ExecuteMessages.h"

namespace corvana {

/// Reads what rsync says while it works, in whatever pieces it arrives. File names come back with
/// the bytes they have on disk, line feeds included.
class RsyncOutput {
 public:
  /// The words of rsync's command line that make it speak as this class listens.
  static std::vector<std::string> arguments();

  void readOutput(std::string_view bytes);  ///< from the standard output
  void readErrors(std::string_view bytes);  ///< from the standard error
  /// After the end: what came without a line feed counts as a line.
  void finish();

  /// Name of the item at work, relative to the parent folder of its source; empty before the first.
  const std::string& currentItem() const { return mCurrentItem; }
  std::uint64_t bytesCopied() const { return mBytes; }
  std::uint64_t filesCopied() const { return mFiles; }
  std::uint64_t itemsDeleted() const { return mDeleted; }
  /// 0 to 100, never falling.
  double progress() const { return mProgress; }
  std::uint64_t errorCount() const { return mErrorCount; }
  /// The errors' own words, the first 200 of them.
  const std::vector<std::string>& errors() const { return mErrors; }
  /// The path that the first, and the last, error names; nothing when they name none.
  const std::optional<std::string>& firstErrorPath() const { return mFirstErrorPath; }
  const std::optional<std::string>& lastErrorPath() const { return mLastErrorPath; }

  /// rsync's writing of a name, "\#ooo" for what a terminal cannot show, turned back into bytes.
  static std::string decodedName(std::string_view text);

 private:
  void readOutputLine(std::string_view line);
  void readProgressLine(std::string_view line);
  void readErrorLine(std::string_view line);

  std::string mOutputRest;
  std::string mErrorRest;
  std::string mCurrentItem;
  std::uint64_t mBytes = 0;
  std::uint64_t mFiles = 0;
  std::uint64_t mDeleted = 0;
  double mProgress = 0;
  std::uint64_t mErrorCount = 0;
  std::vector<std::string> mErrors;
  std::optional<std::string> mFirstErrorPath;
  std::optional<std::string> mLastErrorPath;
};

/// One run of rsync as a child with a process group of its own, obeying an ExecuteControl: a pause
/// holds it still, a stop asks it to end and kills it 10 s later. It does not outlive the thread
/// that runs it.
class RsyncProcess {
 public:
  struct End {
    int status = 0;  ///< rsync's exit code, or the number of the signal that ended it
    bool signalled = false;
    bool skipWanted = false;  ///< it was ended because the current item is to be left out
  };

  /// Runs `arguments[0]` (a full path) to its end and blocks until then; `output` takes in what it
  /// says, and `onProgress` is called after each piece of it. An error when it cannot be started.
  static Result<End> run(const std::vector<std::string>& arguments, ExecuteControl& control,
                         RsyncOutput& output, const std::function<void()>& onProgress);
};

}  // namespace corvana
