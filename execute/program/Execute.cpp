#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "execute/ExecuteRun.h"
#include "execute/RunKeeper.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/GvfsShares.h"
#include "platform/qt/QtRunLoop.h"

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

/// A disk that sleeps takes its time to wake up.
constexpr double kSecondsForADisk = 30;

/// Only an agent of the same user and home reads the same log.
bool agentRuns(const std::string& home) {
  const auto processes = ProcessTable(home).list();
  return std::any_of(processes.begin(), processes.end(), [](const RunningProcess& process) {
    return process.bundleExecutable == "Corvana 9 Scheduler";
  });
}

/// Of the scheduler, whose bundle lies beside this one's.
std::string resourcesFolder(const Machine& machine) {
  const std::string executable = machine.executablePath();
  std::string_view bundle = executable;
  for (int level = 0; level < 4; ++level) bundle = ZAN_FilesUtils::parentPath(bundle);
  return ZAN_FilesUtils::joinedPath(bundle, "Corvana 9 Scheduler.app/Contents/Resources");
}

/// The user's, for answers.
struct Language {
  Language(const Machine& machine, SystemLog& log)
      : strings(machine.regionName(), machine.timeZoneName()) {
    const Outcome loaded = texts.load(resourcesFolder(machine), machine.languageNames());
    if (!loaded) log.write(loaded.error().text);
  }

  ZAN_StringTable texts;
  const ZAN_StringUtils strings;
};

/// A disk that sleeps takes its time to wake up; one that was given up has had it.
constexpr double kSecondsForSilentVolumes = 5;

/// Where there is no thread for as long, there will be none.
constexpr double kSecondsForAThread = 5;

/// Whether everything that others go by is on the disk.
bool isRecorded(ActionStore& store) {
  const auto& troubles = store.files().troubles();
  return std::ranges::none_of(
      std::array{DataFolder::kHistory, DataFolder::kLog, DataFolder::kActions,
                 DataFolder::kChanges},
      [&](std::string_view name) { return troubles.contains(store.folder().pathOf(name)); });
}

/// What is to be done has a thread of its own; the main one hears and passes on messages. The
/// status to end with: not 0 when it could not record its end.
int perform(const ExecuteArguments& arguments, RunKeeper& keeper, double patience,
            const std::function<void(ExecuteRun&)>& body) {
  ExecuteControl control(&keeper.signs());
  TerminationSignals terminations(true);
  SystemClock clock;
  LinuxMachine machine;
  StandardErrorLog log;
  QtRunLoop loop;
  const auto tell = [&log](const std::exception& exception) {
    log.write(std::string("Exception in Corvana 9 Execute: ") + exception.what());
  };
  loop.onException = tell;
  terminations.watch(loop, [&control](const TerminationSignal& signal) {
    control.stop(signal.endsSession() ? StopReason::sessionEnd : StopReason::user);
  });
  BusNotifications notifications(loop, log);
  ExecuteMessages messages(clock, [&](const DistributedNotification& message) {
    loop.performOnMain([&notifications, message] { notifications.post(message); });
  });
  std::optional<Language> language;  // of few executions anything is asked
  notifications.observe("CVA9_ExecuteNotification", [&](const DistributedNotification& message) {
    if (!language) language.emplace(machine, log);
    messages.handle(message, control, {language->texts, language->strings, arguments.reference});
  });
  const ZAN_StringTable noTexts;
  const auto work = [&](const std::function<void(ExecuteRun&)>& what) {
    keeper.signs().thread = ::gettid();
    ActionStore store(clock, machine, log);
    ActionTree tree(store.tree(), clock, log, noTexts);
    History history(store);
    const auto volumes = GvfsShares::volumesNow(machine, patience);
    ExecuteRun run({{store, tree, history},
                    messages,
                    control,
                    [&] { return agentRuns(machine.homeFolder()); },
                    *volumes,
                    machine});
    what(run);
    return isRecorded(store) ? 0 : 1;
  };
  const auto guarded = [&](const std::function<void(ExecuteRun&)>& what) {
    try {
      return work(what);
    } catch (const std::exception& exception) {
      tell(exception);
      return 1;
    }
  };
  std::atomic<bool> isTaken = false;
  loop.detachThread("execute", [&] {
    if (isTaken.exchange(true)) return;
    const int status = guarded(body);
    loop.performOnMain([&loop, status] { loop.quit(status); });
  });
  loop.performAfter(kSecondsForAThread, [&] {
    if (isTaken.exchange(true)) return;
    loop.quit(guarded([&](ExecuteRun& run) {
      ExecuteEnd end;
      end.code = ExecuteCode::unexpectedError;
      end.reason =
          "The system has no thread for the execution: " + std::generic_category().message(EAGAIN) +
          "; it can begin when fewer programs run";
      run.recordEnd(arguments, end);
    }));
  });
  return loop.run();
}

int execute(const ExecuteArguments& arguments, int count, char** words) {
  const auto patience = RunKeeper::Patience::usual();
  RunKeeper keeper(patience);
  const auto end = keeper.split();
  if (end && !end->isSilent) RunKeeper::endLike(end->status);
  const QCoreApplication application(count, words);
  // It has taken over the user's decimal sign; numbers in files have a point.
  std::setlocale(LC_NUMERIC, "C");
  if (!end) {
    return perform(arguments, keeper, kSecondsForADisk,
                   [&](ExecuteRun& run) { run.perform(arguments); });
  }
  return perform(arguments, keeper, kSecondsForSilentVolumes, [&](ExecuteRun& run) {
    run.recordSilence(arguments, patience.silence, end->stop);
  });
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
  qputenv("QT_NO_GLIB", "1");
  // Whoever started it or reads what it prints may be gone; the backup goes on and is recorded.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return corvana::execute(*arguments, count, words);
  } catch (const std::exception& exception) {
    std::cerr << "Corvana 9 Execute could not start: " << exception.what() << '\n';
    return 1;
  }
}
