#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvana {

/// How far an execution has come.
struct ExecuteProgress {
  std::string currentPath;
  double value = 0;  ///< 0 to 100
  std::uint64_t sizeCopied = 0;
  std::uint64_t filesCopied = 0;
  std::uint64_t errors = 0;
  bool isPlanning = false;      ///< it is still being found out what there is to do
  std::uint64_t itemsSeen = 0;  ///< while that goes on
  std::uint64_t bytesToCopy = 0;
  std::uint64_t filesToCopy = 0;
  double bytesPerSecond = 0;  ///< of late; 0: not known yet
  double secondsLeft = -1;    ///< -1: not known yet
};

/// How an execution ended, as the log and the history number it.
enum class ExecuteCode {
  completed = 2,
  abortedByUser = 3,
  volumeNotFound = 4,
  unexpectedError = 5,
  timeOut = 11,
  completedWithErrors = 14,
  volumeGone = 15,
  volumeNotAvailable = 17,
};

struct ExecuteEnd {
  ExecuteCode code = ExecuteCode::completed;
  std::string reason;  ///< in words; empty when all went well
  std::uint64_t errors = 0;
  std::vector<std::string> errorTexts = {};
  std::vector<std::string> skipped = {};
  std::optional<std::string> firstErrorPath = {};
  std::optional<std::string> lastErrorPath = {};
  ExecuteProgress progress = {};  ///< the last of it
  std::uint64_t filesReplaced = 0;
  std::uint64_t bytesReplaced = 0;
  std::uint64_t filesDeleted = 0;
  std::uint64_t bytesDeleted = 0;
  /// Of the errors those that name something which the copy has to do without, and the patterns
  /// that leave those things out, the first 200.
  std::uint64_t notPossible = 0;
  std::vector<std::string> patterns = {};
  std::vector<std::string> losses = {};  ///< what the file system of the copies cannot keep
  bool isReadBack = false;               ///< the first copy, and a part of it was found good
  bool isDoubted = false;                ///< the disk did not confirm what was written
  bool mayTakeOver = false;              ///< once the user lets it have what is there
  bool isUnreachable = false;            ///< the target did not answer, or others hold it
  /// So many deletions wait for the user's consent.
  std::uint64_t toConfirm = 0;

  /// What was executed, be it with errors, moves the action's counter and date on.
  bool isExecuted() const {
    return code == ExecuteCode::completed || code == ExecuteCode::completedWithErrors;
  }
  /// Everything is there but for what cannot be.
  bool onlyLacks() const {
    return code == ExecuteCode::completedWithErrors && reason.empty() && notPossible > 0 &&
           errors == notPossible;
  }
  bool isSuccess() const { return code == ExecuteCode::completed || onlyLacks(); }
};

}  // namespace corvana
