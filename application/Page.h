#pragma once

#include <QWidget>
#include <cstdint>

#include "application/Household.h"

namespace corvana {

/// Where a page leads to: asked by the pages, answered by the main window.
class Navigator {
 public:
  virtual ~Navigator() = default;

  virtual void showOverview() = 0;
  /// The steps for a new backup.
  virtual void createBackup() = 0;
  /// All that can be said of one that is there; nothing happens when it is gone.
  virtual void changeBackup(std::int64_t reference) = 0;
  /// 0: none is chosen.
  virtual void showRestore(std::int64_t reference) = 0;
  /// The runs of one backup, 0: of all; only those that failed when wanted.
  virtual void showHistory(std::int64_t reference, bool onlyFailures) = 0;
  virtual void showSettings() = 0;
};

/// One page of the main window. It shows what it reads from the household and keeps nothing of it
/// longer than a pass of the loop, nodes of the tree least of all.
class Page : public QWidget {
 public:
  Page(Household& household, Navigator& navigator) : mHousehold(household), mNavigator(navigator) {}

  /// Something that the page may show has changed. Called when the page comes to the front, with
  /// everything, and then as often as something changes as long as it is there.
  virtual void refresh(ChangeSet changed) = 0;

 protected:
  Household& household() const { return mHousehold; }
  Navigator& navigator() const { return mNavigator; }

 private:
  Household& mHousehold;
  Navigator& mNavigator;
};

}  // namespace corvana
