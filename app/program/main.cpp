#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "actions/ActionStore.h"
#include "app/MainScheduler.h"
#include "app/program/DesktopModule.h"
#include "app/program/Options.h"
#include "app/program/StandardStreams.h"
#include "core/record/ExceptionGuard.h"
#include "platform/linux/HeadlessUserInterface.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/linux/LinuxServerSockets.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/Modules.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/qt/AvahiServices.h"
#include "platform/qt/BusAgentObject.h"
#include "platform/qt/BusConnection.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/GvfsShares.h"
#include "platform/qt/Logind.h"
#include "platform/qt/QtNetwork.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {
namespace {

/// How long threads that still mount or copy something may take to end.
constexpr double kLastWait = 10;

std::unique_ptr<SystemLog> systemLog(const Options& options) {
  if (options.headless || isatty(STDERR_FILENO) != 0) return std::make_unique<StandardErrorLog>();
  return std::make_unique<Syslog>();
}

/// The application object that Qt wants around its loop: the desktop's, or a bare one.
struct Application {
  std::unique_ptr<Desktop> desktop;
  std::unique_ptr<GuardedApplication<QCoreApplication>> bare;
};

Application application(const Options& options, SystemLog& log,
                        const std::function<void(const std::exception&)>& onException, int& count,
                        char** arguments) {
  // A quarter of the wake-ups' cost is the other dispatcher; children are to have it nevertheless.
  const bool hadNoGlib = qEnvironmentVariableIsSet("QT_NO_GLIB");
  qputenv("QT_NO_GLIB", "1");
  // It complains aloud where the locale is the plain one, and goes on.
  const QtMessageHandler handler =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  Application made;
  if (!options.headless) made.desktop = openDesktop(count, arguments, log);
  if (made.desktop == nullptr) {
    made.bare = std::make_unique<GuardedApplication<QCoreApplication>>(count, arguments);
    made.bare->onException = onException;
  }
  qInstallMessageHandler(handler);
  if (!hadNoGlib) qunsetenv("QT_NO_GLIB");
  // It has taken over the user's decimal sign; numbers in files and on the wire have a point.
  std::setlocale(LC_NUMERIC, "C");
  return made;
}

WakeAlarm wakeAlarm(const Machine& machine) {
  return WakeAlarm({InstallPaths(machine).toolPath("wakeup"),
                    DataFolder(machine.homeFolder()).hiddenFolderPath()});
}

int run(const Options& options, ReferenceTime start, int count, char** arguments) {
  TerminationSignals terminations(false);
  const std::vector<std::string> words(arguments, arguments + count);
  const std::unique_ptr<SystemLog> log = systemLog(options);
  ExceptionGuard guard(*log);
  const auto onException = [&guard](const std::exception& exception) { guard.tell(exception); };
  const Application qt = application(options, *log, onException, count, arguments);
  QtRunLoop loop;
  loop.onException = onException;
  SystemClock clock(&loop);
  LinuxMachine machine;
  LinuxProcesses processes(loop, {words, start, machine.homeFolder()});
  Logind logind(loop, *log);
  LogindPower power(logind, wakeAlarm(machine));
  NoInput noInput;
  HeadlessUserInterface headless(
      loop, [&log](const std::string& line) { log->write(line); }, !options.headless);
  if (qt.desktop != nullptr) qt.desktop->begin({loop, clock, machine, *log, onException});
  Input& input = qt.desktop != nullptr ? qt.desktop->input() : noInput;
  UserInterface& userInterface = qt.desktop != nullptr ? qt.desktop->userInterface() : headless;
  LinuxVolumes volumes(machine.loginName(), machine.homeFolder(), loop, loop);
  if (const Outcome usable = volumes.checkChosenFolder(); !usable)
    log->write("Stray folders are not looked for, as CORVANA9_VOLUMES names none to look in: " +
               usable.error().text);
  BusConnection bus(loop, *log);
  const GvfsShares shares(
      bus, [&volumes](std::vector<Mount> all) { volumes.setShares(std::move(all)); });
  BusNotifications notifications(bus, loop, *log);
  BusAgentObject agentObject(bus, loop, clock);
  QtNetwork network;
  AvahiServices services(loop, *log);
  LinuxServerSockets serverSockets(loop, loop);
  ModuleChannels keyedChannels;
  std::optional<MainScheduler> scheduler;
  scheduler.emplace(Platform{clock, loop, machine, power, processes, input, userInterface,
                             notifications, *log, volumes, network, services, serverSockets,
                             &agentObject, &keyedChannels});
  scheduler->store().saveInBackground(loop);
  if (qt.desktop != nullptr) {
    qt.desktop->attach(scheduler->userInterfaceSources());
    qt.desktop->whenLost([&] {
      log->write("The display has gone; the scheduler goes on without windows");
      scheduler->goOnWithoutDesktop();
    });
  }
  terminations.watch(loop, [&](const TerminationSignal& signal) {
    log->write(std::string("Ended by ") + strsignal(signal.number) +
               (signal.endsSession() ? ", as the session ends" : ""));
    scheduler->terminateBySelf();
  });
  loop.performOnMain([&] { scheduler->applicationDidFinishLaunching(); });
  const int code = loop.run();
  if (qt.desktop != nullptr) qt.desktop->end();
  if (!loop.joinThreads(kLastWait)) {
    // What they wait for may never come, and everything is saved.
    log->write("Something in the background does not end; it is left behind");
    std::fflush(nullptr);
    _exit(code);
  }
  scheduler.reset();
  return code;
}

}  // namespace
}  // namespace corvana

int main(int count, char** arguments) {
  using corvana::Options;
  const corvana::ReferenceTime start = corvana::SystemClock().now();
  corvana::openMissingStandardStreams();
  // Inherited as ignored, it would let the ends of children get lost.
  signal(SIGCHLD, SIG_DFL);
  const Options options =
      Options::parse(std::vector<std::string>(arguments + (count > 0 ? 1 : 0), arguments + count));
  switch (options.wish) {
    case Options::Wish::help:
      std::fputs(Options::help().c_str(), stdout);
      return 0;
    case Options::Wish::version:
      std::puts("Corvana 9 Scheduler " CORVANA_VERSION);
      return 0;
    case Options::Wish::refuse:
      std::fprintf(stderr, "%s: not understood; --help tells what is\n", options.wrong.c_str());
      return 2;
    case Options::Wish::run:
      break;
  }
  try {
    return corvana::run(options, start, count, arguments);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "Corvana 9 Scheduler could not start: %s\n", exception.what());
    return 1;
  }
}
