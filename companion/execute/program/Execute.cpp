#include <iostream>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "companion/VolumeFacts.h"
#include "companion/execute/ExecuteArguments.h"
#include "companion/execute/ExecuteRun.h"
#include "companion/execute/SignalWatch.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/SystemLogs.h"

namespace corvana {
namespace {

constexpr std::string_view kUsage =
    "Usage: \"Corvana 9 Execute\" REFERENCE [SHOW-PROGRESS SHOW-MOUNT-MESSAGE 1 RETRY SURVEY-MODE "
    "\"\" "
    "ESTIMATE-SIZE SET-FRONT]\n"
    "\n"
    "Executes one programmed action of this user, copying or synchronising with rsync. The "
    "scheduler starts it;\n"
    "by hand the reference alone will do (see corvana9 tree). It ends with 0 whenever it could "
    "record by itself\n"
    "how the execution ended; the log and the history say how.\n";

void perform(const ExecuteArguments& arguments) {
  ExecuteControl control;
  const SignalWatch signals([&control] { control.stop(StopReason::user); });
  SystemClock clock;
  LinuxMachine machine;
  StandardErrorLog log;
  ActionStore store(clock, machine, log);
  const ZAN_StringTable texts;
  ActionTree tree(store.tree(), clock, log, texts);
  History history(store);
  ExecuteMessages messages(clock, {});
  ExecuteRun({{store, tree, history},
              messages,
              control,
              [] { return false; },
              VolumeFacts::volumesFolder(machine.loginName())})
      .perform(arguments);
}

}  // namespace
}  // namespace corvana

int main(int count, char** words) {
  const std::vector<std::string_view> rest(words + (count > 0 ? 1 : 0), words + count);
  if (!rest.empty() && rest.front() == "--help") {
    std::cout << corvana::kUsage;
    return 0;
  }
  const auto arguments = corvana::ExecuteArguments::parse(rest);
  if (!arguments) {
    std::cerr << arguments.error().text << '\n' << corvana::kUsage;
    return 2;
  }
  corvana::perform(*arguments);
  return 0;
}
