#include <unistd.h>

#include <QCoreApplication>
#include <iostream>
#include <memory>
#include <string_view>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/InstallPaths.h"
#include "execute/SignalWatch.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemLogs.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/BusWatch.h"
#include "platform/qt/Logind.h"
#include "platform/qt/QtRunLoop.h"
#include "tools/shutdown/ShutdownWatch.h"
#include "tools/shutdown/SkipOffer.h"

namespace corvana {
namespace {

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

void perform() {
  LinuxMachine machine;
  QtRunLoop loop;
  std::unique_ptr<SystemLog> log;
  if (isatty(STDERR_FILENO) != 0) {
    log = std::make_unique<StandardErrorLog>();
  } else {
    log = std::make_unique<Syslog>();
  }
  const SignalWatch signalWatch([&loop] { loop.performOnMain([&loop] { loop.quit(0); }); });
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
  loop.run();
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
  const QCoreApplication application(count, words);
  corvana::perform();
  return 0;
}
