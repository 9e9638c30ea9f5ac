#pragma once

#include <QTimer>
#include <cstddef>
#include <functional>
#include <set>
#include <vector>

#include "application/CardList.h"
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

class Banner;
class NetworkMachines;

/// Whether everything is well, in one sentence and with the button that mends it; below, each
/// backup with what became of it last and what comes next. Without any it invites to the first one.
class OverviewPage final : public Page {
 public:
  OverviewPage(Household& household, Navigator& navigator);

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
  bool areBackupsLost() const;
  void placeNetwork();
  void showBanner();
  std::string lastSuccessOf(const BackupFacts& facts) const;
  void sayWhatFailed(Look::Meaning meaning, const QString& title, const BackupFacts& facts);
  void showCards();
  void fillCard(BackupCard& card, const BackupFacts& facts);
  BackupCard::Hooks hooks();
  const BackupFacts* factsFor(std::int64_t reference) const;
  void run(std::int64_t reference);
  /// What keeps it from running, in place.
  void explain(std::int64_t reference);
  void pause(bool isPaused);
  void markAsSeen();
  void confirmDeletions(std::int64_t reference, std::int64_t count);
  void leaveOut(std::int64_t reference);
  void takeOver(std::int64_t reference);
  /// It runs with its record changed.
  void runChanged(std::int64_t reference, void (*change)(ZAN_Value& record));
  void duplicate(std::int64_t reference);
  void move(std::int64_t reference, int places);
  /// Before or behind another one, and into the group of that.
  void moveTo(std::int64_t reference, const CardList::Place& place);
  std::optional<QString> lookAt(std::int64_t reference, const CardList::Place& place) const;
  void remove(std::int64_t reference);
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
  const BackupCard::Hooks mHooks;
  CardList* mList;
  QVBoxLayout* mListColumn = nullptr;
  QVBoxLayout* mEmptyColumn = nullptr;
  NetworkMachines* mNetwork;  ///< on the page that is shown
  std::vector<BackupFacts> mFacts;
  std::vector<std::size_t> mRows;  ///< of the facts that have what is searched for
  std::set<std::int64_t> mQueued;
  QTimer mLater;     ///< many changes at once are read once
  QTimer mProgress;  ///< while something runs
};

}  // namespace corvana
