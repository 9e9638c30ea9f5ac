#include "core/record/Records.h"

namespace corvana {

Records::Records(const Platform& given)
    : guard(given.systemLog),
      runLoop(given.runLoop, guard),
      platform(given.withRunLoop(runLoop)),
      changes(given.runLoop),
      store(given.clock, given.machine, given.systemLog),
      strings(given.machine.regionName(), given.machine.timeZoneName()),
      state(given.clock.now()),
      preferences(store.settings(), given.machine, state.deadlines, given.clock.now()),
      survey(given.clock, runLoop,
             std::string(ZAN_FilesUtils::pathWithoutExtension(
                 ZAN_FilesUtils::lastPathComponent(given.machine.bundlePath())))),
      siblingWatch(given.processes, survey,
                   store.installPaths().installPathForCode(InstallPaths::mainAppBundle),
                   store.installPaths().installPathForCode(InstallPaths::executeBundle)),
      channel(given.notifications, siblingWatch, state, preferences, given.machine.bundlePath()),
      history(store),
      log(given, history, channel, preferences, state, changes, texts),
      debugLog(given.clock, store.texts(), given.processes.ownStart(),
               siblingWatch.isMainAppLaunched()),
      messages(platform, changes, state.deadlines, preferences, log, store.texts(), strings),
      storage(platform, store, log, messages, texts),
      tree(store.tree(), given.clock, given.systemLog, texts) {
  store.files().keepForLater(runLoop);
  runLoop.onPerformed = [this] { changes.touch(); };
  state.deadlines.onSet = [this] { changes.touch(); };
  survey.onUpdated = [this] { changes.note(Change::survey); };
}

void Records::executionStatusChanged() {
  changes.note(Change::execution);
  channel.sendSchedulerStatusToMainApp();
}

}  // namespace corvana
