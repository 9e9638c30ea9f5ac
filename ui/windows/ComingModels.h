#pragma once

#include "core/work/ComingActions.h"
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

/// The window of the queue: what runs, what waits and in which order. Thread: main.
class QueueModel final : public WindowTable {
 public:
  explicit QueueModel(const UserInterfaceSources& sources) : m(sources) {}

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override;
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  /// The reference, or minus it for the copy of the head that a crash leaves behind it.
  std::int64_t id(std::size_t row) const override;

  /// Whether it can be moved, removed and run now: the one that is being executed stays.
  bool canMove(std::size_t row) const;
  /// Puts a row before the one at `before`, or at the end; nothing passes the running one.
  void move(std::size_t row, std::size_t before);
  void remove(const std::vector<std::size_t>& rows);
  /// Due now and next in line, also while automatic execution is off.
  void runNow(std::size_t row);

  bool isExecuting() const;
  std::string pauseTitle() const;
  void pauseOrContinue();
  void stop();
  void skip();
  void showProgress();
  /// A line below the list: how many wait, and what holds them back.
  std::string summary() const;

 private:
  std::string state(std::size_t row) const;

  const UserInterfaceSources& m;
};

}  // namespace corvana
