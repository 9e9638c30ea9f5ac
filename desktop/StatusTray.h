#pragma once

#include <QIcon>
#include <memory>

#include "platform/RunLoop.h"

class QDBusServiceWatcher;
class QMenu;
class QSystemTrayIcon;

namespace corvana {

class BusSignal;
class X11Screen;

/// The status item in the desktop's panel. How the panel takes it is decided once for the whole
/// run, when the icon is made; so it is made when a panel is there: one on the bus goes first, one
/// that takes windows is used when none comes soon. Thread: main.
class StatusTray {
 public:
  StatusTray(RunLoop& runLoop, X11Screen& screen, QMenu& menu);
  StatusTray(const StatusTray&) = delete;
  StatusTray& operator=(const StatusTray&) = delete;
  ~StatusTray();

  /// No panel has come for a while; called once at most.
  std::function<void()> onNoPanel;
  /// The icon was clicked where that does not open the menu.
  std::function<void()> onActivated;

  void show();
  void hide();
  /// A panel has come, so there is a place for the icon.
  bool isTaken() const { return mTray != nullptr; }
  void setIcon(const QIcon& icon);
  void setToolTip(const QString& text);
  const QString& toolTip() const { return mToolTip; }

 private:
  void lookForPanel();
  void askWatcher();
  void considerWindowTray();
  void make();

  RunLoop& mRunLoop;
  X11Screen& mScreen;
  QMenu& mMenu;
  QIcon mIcon;
  QString mToolTip;
  bool mWanted = false;
  bool mLooks = false;
  std::unique_ptr<QSystemTrayIcon> mTray;
  std::unique_ptr<QDBusServiceWatcher> mWatcher;
  std::unique_ptr<BusSignal> mHostSignal;
  RunLoop::TimerId mWindowTrayTimer = 0;
  RunLoop::TimerId mNoPanelTimer = 0;
};

}  // namespace corvana
