#pragma once

#include <optional>
#include <utility>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "core/record/SchedulerCommands.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The status window: what the scheduler does and waits for, and below it every action with its
/// last and next run. Thread: main.
class StatusModel final : public WindowTable {
 public:
  explicit StatusModel(const UserInterfaceSources& sources);

  void refresh();

  /// Label and text of each line of facts. Their number does not change when something begins or
  /// ends, so that nothing below them moves.
  std::vector<std::pair<std::string, std::string>> facts() const;
  /// What failed, or only lacks what cannot be copied, and was not seen yet, in a sentence; empty
  /// for nothing.
  std::string failureText() const;
  void showFailures() const;
  void markFailuresAsSeen() const { m.commands.errorsWereSeen(); }
  /// Of the running execution, 0 to 100.
  std::optional<int> progress() const;
  /// The pop-up of automatic execution: 0 on, 1 off when all is done, 2 off.
  std::vector<std::string> executionChoices() const;
  int execution() const;
  void setExecution(int item) const;
  std::vector<std::string> contextChoices() const;
  int context() const;
  void setContext(int context) const;
  std::string pauseTitle() const;
  void pauseOrContinue() const;
  bool isExecuting() const;
  void stop() const;

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mActions.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  Tone tone(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override { return mActions[row].ref; }
  void sortBy(std::size_t column, bool descending) override;
  std::string why(std::size_t row) const;
  std::string launch(const std::vector<std::size_t>& rows) const;

 private:
  struct Action {
    std::int64_t ref = 0;
    std::string title;
    std::string folded;
    std::optional<ReferenceTime> last = {};
    std::optional<ReferenceTime> next = {};
    bool automatic = false;
  };
  void sort();

  const UserInterfaceSources& m;
  std::vector<Action> mActions;
  std::size_t mSortColumn = 0;
  bool mDescending = false;
};

/// The execution survey: whether an execution runs and answers, how it is to be run, what it worked
/// on lately, and where the scheduler's own time goes. Thread: main.
class SurveyModel final : public WindowTable {
 public:
  /// Begins to measure.
  explicit SurveyModel(const UserInterfaceSources& sources);
  ~SurveyModel() override;

  std::string title() const;
  /// Since when what runs, as of the last look.
  std::string line() const;
  std::string reply() const;
  std::vector<std::string> timings() const;

  std::vector<std::string> modes() const;
  int mode() const;
  void setMode(int mode) const;

  /// The latest paths, newest first.
  std::vector<Column> columns() const override;
  std::size_t rowCount() const override;
  std::string text(std::size_t row, std::size_t column) const override;
  std::string icon(std::size_t row) const override;
  std::int64_t id(std::size_t row) const override { return static_cast<std::int64_t>(row); }

 private:
  const UserInterfaceSources& m;
};

}  // namespace corvana
