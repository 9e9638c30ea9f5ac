#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <vector>

#include "app/MainScheduler.h"
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
#include "ui/Desktop.h"

namespace corvana {
namespace {

/// What the program was asked for by its arguments.
struct Options {
  enum class Wish { run, help, version, refuse };
  Wish wish = Wish::run;
  bool headless = false;  ///< no windows even where there is a desktop
  std::string wrong;      ///< the argument that is not understood, with `refuse`

  /// `arguments` without the program's name.
  static Options parse(const std::vector<std::string>& arguments);
  static std::string help();
};

Options Options::parse(const std::vector<std::string>& arguments) {
  Options options;
  for (const std::string& argument : arguments) {
    if (argument == "--help" || argument == "-h") {
      options.wish = Wish::help;
    } else if (argument == "--version") {
      options.wish = Wish::version;
    } else if (argument == "--headless") {
      options.headless = true;
      continue;
    } else {
      options.wish = Wish::refuse;
      options.wrong = argument;
    }
    break;
  }
  return options;
}

std::string Options::help() {
  return "Usage: corvana9-scheduler [--headless]\n"
         "\n"
         "Runs the scheduler of Corvana 9: it executes the programmed actions when they fall due,\n"
         "until it is told to quit. One of them runs for each user.\n"
         "\n"
         "  --headless  show no windows; what there is to tell goes to the standard error stream\n"
         "  --help      show this text\n"
         "  --version   show the version\n"
         "\n"
         "SIGTERM, SIGINT and SIGHUP end it in good order. The command corvana9 speaks to it.\n";
}

/// Opens /dev/null for each of the three standard streams that this process was started without, so
/// that no other file takes its number.
void openMissingStandardStreams() {
  int descriptor = -1;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) close(descriptor);
}

bool mayHaveDisplay() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return true;
  }
  return false;
}

std::string modulePath() {
  std::error_code failed;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failed);
  return (program.parent_path().parent_path() / "PlugIns" / "Desktop.so").string();
}

/// Opens the desktop's file beside the program. Null without a display, or when the file cannot be
/// opened, which `log` is told; the agent then goes on without windows.
std::unique_ptr<Desktop> openDesktop(int& count, char** arguments, SystemLog& log) {
  if (!mayHaveDisplay()) return nullptr;
  // It stays open: Qt leaves objects behind that live until the process ends.
  void* module = dlopen(modulePath().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) {
    log.write(std::string("No windows: ") + dlerror());
    return nullptr;
  }
  const auto make = reinterpret_cast<OpenDesktop>(dlsym(module, kOpenDesktop));
  if (make == nullptr) {
    log.write("No windows: " + modulePath() + " is not the desktop of this program");
    return nullptr;
  }
  std::string reason;
  std::unique_ptr<Desktop> desktop(make(count, arguments, reason));
  if (desktop == nullptr) log.write("No windows: " + reason);
  return desktop;
}

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
