#include "desktop/QtDesktop.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <clocale>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "desktop/ScreenInput.h"
#include "desktop/X11Input.h"
#include "platform/qt/BusConnection.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

namespace {

constexpr const char* kPlatform = "QT_QPA_PLATFORM";
constexpr const char* kBus = "DBUS_SESSION_BUS_ADDRESS";

bool hasPlatform(const QString& name) {
  const QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath) + QStringLiteral("/platforms"));
  return !plugins.entryList({QStringLiteral("libq%1*.so").arg(name)}, QDir::Files).isEmpty();
}

bool hasWaylandSocket() {
  const QString name = qEnvironmentVariable("WAYLAND_DISPLAY");
  if (name.isEmpty()) return false;
  return QFile::exists(name.startsWith('/') ? name
                                            : qEnvironmentVariable("XDG_RUNTIME_DIR") + '/' + name);
}

/// Qt's name of the platform to use; empty when nothing answers, for it would abort.
QByteArray platformThatAnswers(std::string& reason) {
  const QByteArray wanted = qgetenv(kPlatform);
  if (!wanted.isEmpty() && !wanted.startsWith("xcb")) return wanted;
  if (X11Input::displayAnswers()) return wanted.isEmpty() ? QByteArray("xcb") : wanted;
  if (wanted.isEmpty() && hasWaylandSocket() && hasPlatform(QStringLiteral("wayland"))) {
    return "wayland";
  }
  reason = qEnvironmentVariableIsSet("DISPLAY")
               ? "the display " + qgetenv("DISPLAY").toStdString() + " does not answer"
               : "there is no display";
  return {};
}

}  // namespace

std::unique_ptr<QtDesktop> QtDesktop::open(int& count, char** arguments, std::string& reason) {
  const bool wasSet = qEnvironmentVariableIsSet(kPlatform);
  const QByteArray before = qgetenv(kPlatform);
  const QByteArray platform = platformThatAnswers(reason);
  if (platform.isEmpty()) return nullptr;
  // What is started later is to choose for itself.
  qputenv(kPlatform, platform);
  // Qt would start a bus of its own where it finds a display and no address.
  const bool hasBus = qEnvironmentVariableIsSet(kBus);
  if (!hasBus) {
    const std::string address = BusConnection::sessionBusAddress();
    qputenv(kBus, address.empty() ? "unix:path=/nonexistent" : address.c_str());
  }
  auto desktop = std::make_unique<QtDesktop>(count, arguments);
  static_cast<void>(QDBusConnection::sessionBus());
  if (!hasBus) qunsetenv(kBus);
  if (wasSet) {
    qputenv(kPlatform, before);
  } else {
    qunsetenv(kPlatform);
  }
  return desktop;
}

QtDesktop::QtDesktop(int& count, char** arguments) : mApplication(count, arguments) {
  QApplication::setQuitOnLastWindowClosed(false);
  QCoreApplication::setQuitLockEnabled(false);
  QGuiApplication::setDesktopFileName(QStringLiteral("corvana9-scheduler"));
  QGuiApplication::setApplicationDisplayName(QStringLiteral("Corvana 9 Scheduler"));
  std::setlocale(LC_NUMERIC, "C");
}

QtDesktop::~QtDesktop() = default;

void QtDesktop::begin(const Services& services) {
  mInput = X11Input::make();
  if (mInput == nullptr) mInput = std::make_unique<ScreenInput>();
  mUserInterface = std::make_unique<QtUserInterface>(services);
}

void QtDesktop::attach(const UserInterfaceSources& sources) {
  mLanguage = std::make_unique<DesktopLanguage>(sources.texts.text("LanguageCode"));
  mUserInterface->attach(sources);
}

void QtDesktop::end() { mUserInterface->end(); }

}  // namespace corvana
