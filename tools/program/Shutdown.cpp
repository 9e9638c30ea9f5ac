#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <exception>
#include <iostream>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/InstalledPlaces.h"
#include "core/record/ExceptionGuard.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/BusConnection.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/Logind.h"
#include "platform/qt/QtRunLoop.h"
#include "tools/ShutdownWatch.h"

namespace corvana {

namespace {

QString service() { return QStringLiteral("org.freedesktop.Notifications"); }
QString path() { return QStringLiteral("/org/freedesktop/Notifications"); }
QString button() { return QStringLiteral("skip"); }
constexpr uchar kCritical = 2;

QString qt(const std::string& text) { return QString::fromStdString(text); }

/// A notice of the desktop with one button, which stays until it is closed. Without a desktop
/// nobody sees it. Thread: main.
class SkipOffer {
 public:
  struct Texts {
    std::string title;
    std::string text;
    std::string button;
  };

  /// `chosen` is called when the user presses the button. The connection outlives this object.
  SkipOffer(BusConnection& connection, Texts texts, std::function<void()> chosen);
  SkipOffer(const SkipOffer&) = delete;
  SkipOffer& operator=(const SkipOffer&) = delete;
  ~SkipOffer();

  void open();
  void close();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

class SkipOffer::Private final : public QObject {
  Q_OBJECT

 public:
  Private(BusConnection& connection, Texts texts, std::function<void()> chosen)
      : mConnection(connection), mTexts(std::move(texts)), mChosen(std::move(chosen)) {
    mConnection.whenConnected(this, [this] {
      mConnection.bus().connect(service(), path(), service(), QStringLiteral("ActionInvoked"), this,
                                SLOT(invoked(uint, QString)));
    });
  }
  ~Private() override { mConnection.forget(this); }

  void open() {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service(), path(), service(), QStringLiteral("Notify"));
    call << QStringLiteral("Corvana 9") << mNumber << QString() << qt(mTexts.title)
         << qt(mTexts.text) << QStringList{button(), qt(mTexts.button)}
         << QVariantMap{{QStringLiteral("urgency"), QVariant::fromValue(kCritical)}} << 0;
    auto* watcher = new QDBusPendingCallWatcher(mConnection.bus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
      const QDBusPendingReply<uint> reply = *watcher;
      if (!reply.isError()) mNumber = reply.value();
      watcher->deleteLater();
    });
  }

  void close() {
    if (mNumber == 0) return;
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path(), service(),
                                                       QStringLiteral("CloseNotification"));
    call << std::exchange(mNumber, 0U);
    mConnection.bus().send(call);
  }

 public Q_SLOTS:
  void invoked(uint number, const QString& key) {
    if (number == mNumber && mNumber != 0 && key == button()) mChosen();
  }

 private:
  BusConnection& mConnection;
  Texts mTexts;
  std::function<void()> mChosen;
  uint mNumber = 0;
};

SkipOffer::SkipOffer(BusConnection& connection, Texts texts, std::function<void()> chosen)
    : mPrivate(std::make_unique<Private>(connection, std::move(texts), std::move(chosen))) {}

SkipOffer::~SkipOffer() = default;

void SkipOffer::open() { mPrivate->open(); }

void SkipOffer::close() { mPrivate->close(); }

constexpr std::string_view kUsage =
    "Usage: \"Corvana 9 Shutdown\"\n"
    "\n"
    "Waits for the machine to be shut down and then has the scheduler run the actions that are to "
    "run at\n"
    "the shut-down, while the system waits. The scheduler starts it when there are such actions.\n";

ZAN_StringTable texts(const LinuxMachine& machine) {
  ZAN_StringTable table;
  // A notice without words is better than none.
  static_cast<void>(
      table.load(InstallPaths(machine).installPathForCode(InstallPaths::mainAppResources) +
                     "/Corvana 9 Scheduler.app/Contents/Resources",
                 machine.languageNames()));
  return table;
}

int perform(int count, char** words) {
  std::unique_ptr<SystemLog> log;
  if (isatty(STDERR_FILENO) != 0) {
    log = std::make_unique<StandardErrorLog>();
  } else {
    log = std::make_unique<Syslog>();
  }
  ExceptionGuard guard(*log);
  const auto onException = [&guard](const std::exception& exception) { guard.tell(exception); };
  GuardedApplication<QCoreApplication> application(count, words);
  application.onException = onException;
  LinuxMachine machine;
  TerminationSignals terminations(true);
  QtRunLoop loop;
  loop.onException = onException;
  terminations.watch(loop, [&loop](const auto&) { loop.quit(0); });
  const ZAN_StringTable table = texts(machine);
  Logind logind(loop, *log);
  BusConnection bus(loop, *log);
  std::unique_ptr<ShutdownWatch> watch;
  SkipOffer offer(bus,
                  {table.text("ShutDownActionsTitle"), table.text("ShutDownActionsText"),
                   table.text("ShutDownActionsSkip")},
                  [&watch] { watch->skip(); });
  watch = std::make_unique<ShutdownWatch>(
      loop, *log,
      ShutdownWatch::Hands{
          [&machine] {
            const auto status = BusAgentClient().status();
            const bool isOurs = status && status->string("home") == machine.homeFolder();
            return isOurs ? *status : ZAN_Value();
          },
          [&log](const std::string& object) {
            const Outcome told = BusAgentClient().post({"CVA9_SchedulerNotification", object, {}});
            if (!told) log->write(told.error().text);
          },
          [&offer] { offer.open(); }, [&offer] { offer.close(); },
          [&] {
            logind.letShutDown();
            loop.quit(0);
          }});
  const BusWatch agent(
      bus, {[&watch](const DistributedNotification& notification) {
              if (notification.name == "CVA9_ShutDownNotification" &&
                  notification.object == "SkipShutDownActions")
                watch->skip();
            },
            [&watch] { watch->agentChanged(); }, [&watch](bool on) { watch->agentIsOn(on); }});
  logind.setHandlers({{}, [&watch](bool begins) { watch->prepareForShutdown(begins); }});
  logind.holdUpShutDown("Corvana 9", table.text("ShutDownActionsText"));
  return loop.run();
}

}  // namespace

}  // namespace corvana

int main(int count, char** words) {
  if (count > 1) {
    const bool isHelp = std::string_view(words[1]) == "--help";
    (isHelp ? std::cout : std::cerr) << corvana::kUsage;
    return isHelp ? 0 : 2;
  }
  qputenv("QT_NO_GLIB", "1");
  try {
    return corvana::perform(count, words);
  } catch (const std::exception& exception) {
    std::cerr << "Corvana 9 Shutdown could not start: " << exception.what() << "\n";
    return 1;
  }
}

#include "Shutdown.moc"
