#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The window of the latest actions: what was executed, newest first, how it ended and with which
/// errors. Thread: main.
class LatestActionsModel final : public WindowTable {
 public:
  explicit LatestActionsModel(const UserInterfaceSources& sources);

  void refresh();
  void setOnlyFailures(bool only);
  bool onlyFailures() const { return mOnlyFailures; }

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mShown.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override;

  /// How an execution ended and its errors, a line each.
  std::string details(std::size_t row) const;
  /// Path of the file of its results, when there is one.
  std::optional<std::string> resultsPath(std::size_t row) const;
  std::string launchAgain(std::size_t row) const;
  std::string summary() const;

 private:
  const ZAN_Value& entry(std::size_t row) const { return mEntries.at(mShown[row]); }
  void filter();
  ZAN_Value errorsOf(const ZAN_Value& entry) const;

  const UserInterfaceSources& m;
  ZAN_Value mEntries;  ///< as stored: header, then oldest first
  std::vector<std::size_t> mShown;
  bool mOnlyFailures = false;
};

}  // namespace corvana
