#pragma once

#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The error summary: the executions of the last days that failed, newest first. Thread: main.
class ErrorSummaryModel final : public WindowTable {
 public:
  explicit ErrorSummaryModel(const UserInterfaceSources& sources);

  void refresh();

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mFailures.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t /*row*/) const override { return Tone::alert; }
  std::int64_t id(std::size_t row) const override;

  /// What is known beside the result: the reason, and the path where it happened.
  std::string details(std::size_t row) const;
  std::string launchAgain(std::size_t row) const;
  void showLatestActions() const;
  /// "Show this window when an action fails".
  bool isShownOnErrors() const;
  void setShownOnErrors(bool shown) const;
  std::string summary() const;

 private:
  const UserInterfaceSources& m;
  std::vector<ZAN_Value> mFailures;  ///< entries of the log
};

}  // namespace corvana
