// plan REFERENCE [MOST]: what an execution of that action would do, as JSON; the agent need not
// run, and does not take it for an execution.

#include <QCoreApplication>
#include <charconv>
#include <iostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "execute/ExecuteRun.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemClock.h"
#include "platform/qt/GvfsShares.h"

namespace {

constexpr double kSecondsForADisk = 30;

std::uint64_t numberOf(std::string_view word) {
  std::uint64_t number = 0;
  std::from_chars(word.data(), word.data() + word.size(), number);
  return number;
}

}  // namespace

int main(int count, char** words) {
  using namespace corvana;
  const std::vector<std::string_view> rest(words + (count > 0 ? 1 : 0), words + count);
  if (rest.empty() || rest.size() > 2 || numberOf(rest[0]) == 0) {
    std::cerr << "Usage: plan REFERENCE [MOST]\n";
    return 2;
  }
  qputenv("QT_NO_GLIB", "1");
  const QCoreApplication application(count, words);
  SystemClock clock;
  LinuxMachine machine;
  StandardErrorLog log;
  const ZAN_StringTable texts;
  ActionStore store(clock, machine, log);
  ActionTree tree(store.tree(), clock, log, texts);
  History history(store);
  ExecuteControl control;
  ExecuteMessages messages(clock, {});
  const auto volumes = GvfsShares::volumesNow(machine, kSecondsForADisk);
  ExecuteRun run({{store, tree, history}, messages, control, {}, *volumes, machine});
  const auto text = ZAN_Json::jsonWithValue(
      run.plan(static_cast<std::int64_t>(numberOf(rest[0])),
               rest.size() > 1 ? static_cast<std::size_t>(numberOf(rest[1])) : 20),
      {.plain = true});
  if (!text) {
    std::cerr << text.error().text << '\n';
    return 1;
  }
  std::cout << *text << std::endl;
  return 0;
}
