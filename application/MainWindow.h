#pragma once

#include <QWidget>
#include <string>

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
/// Thread: main.
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
  void keyPressEvent(QKeyEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void addPage(const QString& icon, const QString& title, Page* page);
  void show(Page* page);
  void dress();
  void placeOnScreen();
  void heard(const std::string& object, const ZAN_Value& userInfo);

  Household& mHousehold;
  QListWidget* mSide;
  QStackedWidget* mStack;
  OverviewPage* mOverview;
  RestorePage* mRestore;
  HistoryPage* mHistory;
  SettingsPage* mSettings;
  CreatePage* mCreate;
  bool mIsDressing = false;
};

}  // namespace corvana
