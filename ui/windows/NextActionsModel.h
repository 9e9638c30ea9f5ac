#pragma once

#include <string>
#include <vector>

#include "core/work/NextAction.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The window of the next actions: all actions and groups, by their next date, found as the user
/// types. Thread: main.
class NextActionsModel final : public WindowTable {
 public:
  explicit NextActionsModel(const UserInterfaceSources& sources);

  /// Takes the list as last built by the evaluation.
  void refresh();
  /// Shows what has every word of the text in its name or shortcut, without regard to case.
  void search(const std::string& text);
  const std::string& searched() const { return mSearch; }

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mShown.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override { return action(row).ref; }
  void sortBy(std::size_t column, bool descending) override;

  /// Another number for another list or another search.
  std::int64_t revision() const { return mRevision; }
  const NextAction& action(std::size_t row) const { return mAll[mShown[row]]; }
  /// Queues these; of a group every action. What came of it, in a line.
  std::string launch(const std::vector<std::size_t>& rows) const;
  /// Why an action does not run now, a reason a line; of a group nothing.
  std::string why(std::size_t row) const;
  /// "12 of 40 actions".
  std::string summary() const;

 private:
  void filter();
  void sort();

  const UserInterfaceSources& m;
  std::vector<NextAction> mAll;
  std::vector<std::string> mFolded;  ///< what is searched, of each; made at the first search
  std::vector<std::size_t> mShown;
  std::string mSearch;
  std::size_t mSortColumn = 1;
  bool mDescending = false;
  std::int64_t mRevision = 0;
};

}  // namespace corvana
