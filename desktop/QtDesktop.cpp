#include "desktop/QtDesktop.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <QDBusConnection>
#include <QtWidgets>
#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <functional>
#include <future>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "core/record/Records.h"
#include "desktop/ScreenInput.h"
#include "desktop/X11.h"
#include "platform/linux/Spawn.h"
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

/// A compositor that has crashed leaves its socket behind.
bool compositorAnswers() {
  const QString name = qEnvironmentVariable("WAYLAND_DISPLAY");
  if (name.isEmpty()) return false;
  const QByteArray path = QFile::encodeName(
      name.startsWith('/') ? name : qEnvironmentVariable("XDG_RUNTIME_DIR") + '/' + name);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= qsizetype(sizeof address.sun_path)) return false;
  std::copy(path.begin(), path.end(), address.sun_path);
  const ZAN_Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// Qt's name of the platform to use; empty when nothing answers, for it would abort.
/// `held`: the connection to the X server, if that is what answered.
QByteArray platformThatAnswers(std::string& reason, std::shared_ptr<void>& held) {
  const QByteArray wanted = qgetenv(kPlatform);
  if (!wanted.isEmpty() && !wanted.startsWith("xcb")) return wanted;
  held = X11Input::answeringDisplay();
  if (held != nullptr) return wanted.isEmpty() ? QByteArray("xcb") : wanted;
  if (wanted.isEmpty() && compositorAnswers() && hasPlatform(QStringLiteral("wayland"))) {
    return "wayland";
  }
  reason = qEnvironmentVariableIsSet("DISPLAY")
               ? "the display " + qgetenv("DISPLAY").toStdString() + " does not answer"
               : "there is no display";
  return {};
}

}  // namespace

/// Qt ends the process when its display goes: on X11 by `exit`, on Wayland by a last message and
/// then in a way that nobody is told of.
class QtDesktop::Loss {
 public:
  std::function<void()> lost;

  /// Stands by until the process ends, and as long as the application is there.
  static std::shared_ptr<Loss> make(QCoreApplication& application) {
    auto loss = std::make_shared<Loss>();
    application.setProperty(kLoss, QVariant::fromValue<void*>(loss.get()));
    auto atExit = std::make_unique<std::weak_ptr<Loss>>(loss);
    const auto ends = [](int, void* weak) {
      const std::unique_ptr<std::weak_ptr<Loss>> own(static_cast<std::weak_ptr<Loss>*>(weak));
      if (const auto still = own->lock()) still->tell();
    };
    if (on_exit(ends, atExit.get()) == 0) static_cast<void>(atExit.release());
    qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& text) {
          std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, text)));
          QCoreApplication* application = QCoreApplication::instance();
          if (application == nullptr) return;
          if (type != QtFatalMsg && !text.startsWith(kWaylandBroke)) return;
          const QVariant known = application->property(kLoss);
          auto* one = static_cast<Loss*>(known.value<void*>());
          if (one == nullptr) return;
          if (application->thread() == QThread::currentThread()) {
            one->tell();
            return;
          }
          // A thread of Qt's is about to end the process; it waits until all is done.
          const auto done = std::make_shared<std::promise<void>>();
          QMetaObject::invokeMethod(
              application,
              [one, done] {
                one->tell();
                done->set_value();
              },
              Qt::QueuedConnection);
          done->get_future().wait_for(kLongestEnd);
        });
    return loss;
  }

  void tell() {
    if (const auto call = std::exchange(lost, {})) call();
  }

 private:
  static constexpr std::chrono::seconds kLongestEnd{20};
  static constexpr const char* kLoss = "corvanaLoss";
  static constexpr QLatin1String kWaylandBroke{"The Wayland connection"};
};

std::unique_ptr<QtDesktop> QtDesktop::open(int& count, char** arguments, std::string& reason) {
  // Qt would wait for its own without end.
  if (!ExpendableChild::runDetached([] {})) {
    reason = "the system has no thread for them";
    return nullptr;
  }
  const bool wasSet = qEnvironmentVariableIsSet(kPlatform);
  const QByteArray before = qgetenv(kPlatform);
  // An X server may begin anew once its last client has gone, and turn away who comes meanwhile.
  std::shared_ptr<void> held;
  const QByteArray platform = platformThatAnswers(reason, held);
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

QtDesktop::~QtDesktop() {
  if (mLoss != nullptr) qInstallMessageHandler(nullptr);
}

void QtDesktop::whenLost(std::function<void()> lost) {
  if (mLoss == nullptr) mLoss = Loss::make(mApplication);
  mLoss->lost = std::move(lost);
}

void QtDesktop::begin(const Services& services) {
  mApplication.onException = services.onException;
  mInput = X11Input::make();
  if (mInput == nullptr) mInput = std::make_unique<ScreenInput>();
  mUserInterface = std::make_unique<QtUserInterface>(services);
}

void QtDesktop::attach(const UserInterfaceSources& sources) {
  mLanguage = std::make_unique<DesktopLanguage>(sources.records.texts.text("LanguageCode"));
  mUserInterface->attach(sources);
}

void QtDesktop::end() {
  if (mLoss != nullptr) mLoss->lost = {};
  mUserInterface->end();
}

}  // namespace corvana
