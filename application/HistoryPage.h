#pragma once

#include <vector>

#include "application/Page.h"
#include "ui/windows/WeekModel.h"

class QComboBox;
class QPushButton;
class QStackedWidget;
class QTreeWidget;

namespace corvana {

class Card;
class TextLabel;
class WeekView;

/// What was executed, newest first, and how it ended; the week ahead; what the agent has said.
class HistoryPage final : public Page {
 public:
  HistoryPage(Household& household, Navigator& navigator);

  /// The runs of one backup alone, 0: of all; only those that failed when wanted.
  void choose(std::int64_t reference, bool onlyFailures);
  /// The notices that the agent has shown, with the one at that place chosen.
  void showNotices(std::int64_t index);

  void refresh(ChangeSet changed) override;

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  QWidget* makeRuns();
  QWidget* makeWeek();
  QWidget* makeNotices();
  void fillNotices();
  void showPart(int part);
  void fillChooser();
  void fillRuns();
  void showChosen();
  void refreshWeek();

  std::int64_t mReference = 0;
  bool mOnlyFailures = false;
  std::vector<ZAN_Value> mEntries;  ///< of the rows
  WeekModel mWeek;
  std::int64_t mRevision = 0;  ///< of what the week is made of

  std::vector<QPushButton*> mParts;
  QStackedWidget* mStack = nullptr;
  QComboBox* mChooser = nullptr;
  QComboBox* mFilter = nullptr;
  QTreeWidget* mRuns = nullptr;
  TextLabel* mNone = nullptr;
  TextLabel* mResult = nullptr;  ///< of the chosen run
  TextLabel* mWhich = nullptr;
  TextLabel* mWork = nullptr;
  TextLabel* mLists = nullptr;
  Card* mDetailsCard = nullptr;
  QWidget* mWeekPart = nullptr;
  WeekView* mWeekView = nullptr;
  TextLabel* mWeekSummary = nullptr;
  TextLabel* mWeekWords = nullptr;
  QTreeWidget* mNotices = nullptr;
  TextLabel* mNoNotices = nullptr;
  std::int64_t mNotice = 0;  ///< to be chosen among them, the newest first
};

}  // namespace corvana
