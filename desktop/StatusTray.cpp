#include "desktop/StatusTray.h"

#include <QtDBus>
#include <QtWidgets>
#include <utility>

#include "desktop/BusSignal.h"
#include "desktop/X11.h"

namespace corvana {

namespace {

/// A panel that takes windows is there at once; that on the bus may still be starting.
constexpr double kBusFirst = 2.0;
constexpr double kNoPanelAfter = 15.0;

QString watcherName() { return QStringLiteral("org.kde.StatusNotifierWatcher"); }
QString watcherPath() { return QStringLiteral("/StatusNotifierWatcher"); }

}  // namespace

StatusTray::StatusTray(RunLoop& runLoop, X11Screen& screen, QMenu& menu)
    : mRunLoop(runLoop), mScreen(screen), mMenu(menu) {}

StatusTray::~StatusTray() {
  mScreen.whenTrayComes({});
  mRunLoop.cancel(mWindowTrayTimer);
  mRunLoop.cancel(mNoPanelTimer);
}

void StatusTray::show() {
  mWanted = true;
  if (mTray != nullptr) {
    mTray->show();
  } else {
    lookForPanel();
  }
}

void StatusTray::hide() {
  mWanted = false;
  if (mTray != nullptr) mTray->hide();
}

void StatusTray::setIcon(const QIcon& icon) {
  mIcon = icon;
  if (mTray != nullptr) mTray->setIcon(icon);
}

void StatusTray::setToolTip(const QString& text) {
  if (text == mToolTip) return;
  mToolTip = text;
  if (mTray != nullptr) mTray->setToolTip(text);
}

void StatusTray::lookForPanel() {
  if (std::exchange(mLooks, true)) return;
  const QDBusConnection bus = QDBusConnection::sessionBus();
  if (bus.isConnected()) {
    mWatcher = std::make_unique<QDBusServiceWatcher>(watcherName(), bus,
                                                     QDBusServiceWatcher::WatchForRegistration);
    QObject::connect(mWatcher.get(), &QDBusServiceWatcher::serviceRegistered, mWatcher.get(),
                     [this] { askWatcher(); });
    mHostSignal = std::make_unique<BusSignal>(watcherName(), watcherPath(), watcherName(),
                                              QStringLiteral("StatusNotifierHostRegistered"),
                                              [this](const QDBusMessage&) { make(); });
    askWatcher();
  }
  mScreen.whenTrayComes([this] { considerWindowTray(); });
  considerWindowTray();
  mNoPanelTimer = mRunLoop.performAfter(kNoPanelAfter, [this] {
    if (mTray == nullptr && mWanted && onNoPanel) onNoPanel();
  });
}

void StatusTray::askWatcher() {
  QDBusMessage question = QDBusMessage::createMethodCall(
      watcherName(), watcherPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
      QStringLiteral("Get"));
  question << watcherName() << QStringLiteral("IsStatusNotifierHostRegistered");
  auto* answer = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(question),
                                             mWatcher.get());
  QObject::connect(answer, &QDBusPendingCallWatcher::finished, mWatcher.get(), [this, answer] {
    answer->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *answer;
    if (reply.isValid() && reply.value().variant().toBool()) make();
  });
}

void StatusTray::considerWindowTray() {
  if (mTray != nullptr || mWindowTrayTimer != 0 || !mScreen.hasTray()) return;
  mWindowTrayTimer = mRunLoop.performAfter(kBusFirst, [this] {
    mWindowTrayTimer = 0;
    if (mScreen.hasTray()) make();
  });
}

void StatusTray::make() {
  if (mTray != nullptr) return;
  mRunLoop.cancel(std::exchange(mWindowTrayTimer, 0));
  mRunLoop.cancel(std::exchange(mNoPanelTimer, 0));
  mScreen.whenTrayComes({});
  mTray = std::make_unique<QSystemTrayIcon>();
  mTray->setContextMenu(&mMenu);
  mTray->setIcon(mIcon);
  mTray->setToolTip(mToolTip);
  QObject::connect(mTray.get(), &QSystemTrayIcon::activated, mTray.get(),
                   [this](QSystemTrayIcon::ActivationReason reason) {
                     if (reason != QSystemTrayIcon::Context && onActivated) onActivated();
                   });
  if (mWanted) mTray->show();
  // This may be within the call of one of them.
  if (mWatcher != nullptr) mWatcher.release()->deleteLater();
  if (mHostSignal != nullptr) mHostSignal.release()->deleteLater();
}

}  // namespace corvana
