#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

class ProgrammedAction;

/// The window of the latest actions: what was executed, newest first, how it ended and with which
/// errors. Thread: main.
class LatestActionsModel final : public WindowTable {
 public:
  explicit LatestActionsModel(const UserInterfaceSources& sources);

  void refresh();
  void setOnlyFailures(bool only);

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mShown.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override;

  /// How an execution ended, and as far as it was kept what it met: its errors, what it handled and
  /// what it left out, a line each.
  std::string details(std::size_t row) const;
  std::string launchAgain(std::size_t row) const;
  std::string summary() const;

 private:
  const ZAN_Value& entry(std::size_t row) const { return mEntries.at(mShown[row]); }
  void filter();
  /// Dictionary of "Errors", "Files" and "Excluded".
  const ZAN_Value& resultsOf(const ZAN_Value& entry) const;

  const UserInterfaceSources& m;
  ZAN_Value mEntries;  ///< as stored: header, then oldest first
  std::vector<std::size_t> mShown;
  bool mOnlyFailures = false;
  /// Those that were read last, since they may be many.
  struct Results {
    std::int64_t ref = 0;
    ReferenceTime date = 0;
    ZAN_Value lists = {};
  };
  mutable std::optional<Results> mResults;
};

/// The error summary: the executions of the last days that failed, newest first. Thread: main.
class ErrorSummaryModel final : public WindowTable {
 public:
  explicit ErrorSummaryModel(const UserInterfaceSources& sources);

  void refresh();

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mFailures.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override;

  /// What is known beside the result: the reason, and the path where it happened.
  std::string details(std::size_t row) const;
  std::string launchAgain(std::size_t row) const;
  /// Whether the action of that row would have deleted files and waits to hear that it may.
  bool asksToDelete(std::size_t row) const;
  /// Asks the user about the number that was counted; a yes holds for that one and runs the action
  /// again. `said`: called then with what came of it in a line.
  void confirmDeletion(std::size_t row, std::function<void(std::string)> said) const;
  /// Whether the action of that row could not copy something that it may leave out.
  bool lacksSomething(std::size_t row) const;
  /// It leaves that out from now on and runs again; what came of it, in a line.
  std::string leaveOutMissing(std::size_t row) const;
  void showLatestActions() const;
  /// Something failed, or lacks what cannot be copied, that the user has not seen.
  bool hasUnseen() const;
  void markAsSeen() const;
  /// "Show this window when an action fails".
  bool isShownOnErrors() const;
  void setShownOnErrors(bool shown) const;
  std::string summary() const;

 private:
  const ProgrammedAction* actionOf(std::size_t row) const;

  const UserInterfaceSources& m;
  std::vector<ZAN_Value> mFailures;  ///< entries of the log
};

}  // namespace corvana
