#pragma once

#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "application/Page.h"

class QListWidget;
class QStackedWidget;

namespace corvana {

class CreatePage;
class HistoryPage;
class OverviewPage;
class RestorePage;
class SettingsPage;

/// The window of the main application: where it leads at the side, and the page that was chosen.
/// A page is made when it is shown first. Thread: main.
class MainWindow final : public QWidget, public Navigator {
 public:
  /// The household outlives the window.
  explicit MainWindow(Household& household);

  void showOverview() override;
  void createBackup() override;
  void changeBackup(std::int64_t reference) override;
  void showRestore(std::int64_t reference) override;
  void showHistory(std::int64_t reference, bool onlyFailures) override;
  void showSettings() override;
  /// Before the other windows, as far as the desktop allows it.
  void bringToFront(const std::string& activationToken);

 protected:
  void changeEvent(QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  /// `key` is that of its title.
  void addPage(const char* icon, const char* key, std::function<Page*()> page);
  template <class Kind>
  Kind* made(Kind*& page);
  /// What stands in that row at the side.
  void showRow(int row);
  void show(Page* page);
  void showCreate();
  void dress();
  void placeOnScreen();
  void heard(const std::string& object, const ZAN_Value& userInfo);

  Household& mHousehold;
  QListWidget* mSide;
  QStackedWidget* mStack;
  std::vector<std::function<Page*()>> mRows;  ///< the pages that the rows at the side lead to
  OverviewPage* mOverview = nullptr;
  RestorePage* mRestore = nullptr;
  HistoryPage* mHistory = nullptr;
  SettingsPage* mSettings = nullptr;
  CreatePage* mCreate = nullptr;
  bool mIsDressing = false;
};

}  // namespace corvana
