#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

}  // namespace corvana
