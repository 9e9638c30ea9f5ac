#pragma once

#include <functional>

#include "application/BackupFacts.h"
#include "application/Look.h"

class QGridLayout;
class QMenu;
class QProgressBar;

namespace corvana {

/// The last runs of a backup, a mark for each by its result, the newest at the right.
class RunBar final : public QWidget {
 public:
  explicit RunBar(Household& household);
  void setRuns(const std::vector<RunKind>& runs);
  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  Household& mHousehold;
  std::vector<RunKind> mRuns;
};

/// One backup on the overview. It shows what it is given; what is wanted of it goes to the hooks.
class BackupCard final : public Card {
 public:
  /// What is wanted of a backup, by its reference.
  struct Hooks {
    std::function<void(std::int64_t)> run, why, restore, change, history, duplicate, remove,
        confirmDeletions, leaveOut, takeOver;
    std::function<void(std::int64_t, int places)> move;  ///< in its group; less than 0: up
    std::function<void(bool)> pause;
    std::function<void()> seen, stop;
  };

  /// `hooks` outlive it.
  BackupCard(Household& household, const Hooks& hooks);

  std::int64_t reference() const { return mReference; }
  /// `current`: the record of the agent's status while this one is executed, else null.
  void show(const BackupFacts& facts, const ZAN_Value& current, bool isQueued, bool isPaused);
  /// As high as what it shows wants to be.
  int heightFor(int width);
  /// In the order in which the keyboard goes through the window.
  void comeAfter(const BackupCard& other);

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void fit(int width);
  void arrange();
  void fillMenu(const BackupFacts& facts, bool isRunning);

  Household& mHousehold;
  const Hooks& mHooks;
  std::int64_t mReference = 0;
  bool mIsNarrow = false;
  bool mIsPaused = false;
  QGridLayout* mGrid;
  TextLabel* mTitle;
  TextLabel* mWay;      ///< what → where
  TextLabel* mLast;     ///< the last success, or what runs
  TextLabel* mResult;   ///< how much it was, or how fast it is
  TextLabel* mTrouble;  ///< what is wrong, if something is
  RunBar* mRuns;
  QProgressBar* mProgress;
  TextLabel* mNext;
  QProgressBar* mRoom;
  TextLabel* mFree;
  QPushButton* mPause;
  QPushButton* mStop;
  QPushButton* mMore;
  QMenu* mMenu;
  QWidget* mParts[4] = {};  ///< the columns
};

}  // namespace corvana
