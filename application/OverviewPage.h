#pragma once

#include <QTimer>
#include <cstddef>
#include <functional>
#include <set>
#include <vector>

#include "application/BackupFacts.h"
#include "application/CommandChild.h"
#include "application/Page.h"

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace corvana {

class BackupCard;
class Banner;

/// Whether everything is well, in one sentence and with the button that mends it; below, each
/// backup with what became of it last and what comes next. Without any it invites to the first one.
class OverviewPage final : public Page {
 public:
  OverviewPage(Household& household, Navigator& navigator);
  ~OverviewPage() override;

  void refresh(ChangeSet changed) override;
  /// Something that the agent wants the user to know, until it is closed.
  void tell(const QString& sentence);

 private:
  QWidget* emptyPage();
  QWidget* listPage();
  /// Reads everything anew, and shows it.
  void read();
  /// Shows again what was read, with what the agent says now.
  void show();
  void showBanner();
  void showCards();
  void placeCards();
  void fillCards();
  void fillCard(std::size_t row);
  BackupCard* cardFor(std::size_t row);
  void run(std::int64_t reference);
  /// What keeps it from running, in place.
  void explain(std::int64_t reference, const QString& title);
  void pause(bool isPaused);
  void markAsSeen();
  void confirmDeletions(std::int64_t reference, std::int64_t count);
  void duplicate(std::int64_t reference);
  void move(std::int64_t reference, int places);
  void remove(std::int64_t reference, const QString& title);
  /// `then` when the user presses `button` and not the other one.
  void ask(const QString& title, const QString& text, const QString& button,
           std::function<void()> then);
  void complain(const Outcome& outcome);

  QStackedWidget* mStack;
  QScrollArea* mScroll;
  Banner* mBanner;
  Banner* mTold;
  CommandChild mWhyChild;
  QLineEdit* mSearch;
  QVBoxLayout* mList;
  std::vector<BackupCard*> mCards;  ///< as many as were looked at so far
  std::size_t mShown = 0;           ///< that may be there
  std::vector<bool> mIsFilled;      ///< which of them show what was read last
  std::vector<BackupFacts> mFacts;
  std::vector<std::size_t> mRows;  ///< of the facts that have what is searched for
  std::set<std::int64_t> mQueued;
  QTimer mLater;     ///< many changes at once are read once
  QTimer mProgress;  ///< while something runs
};

}  // namespace corvana
