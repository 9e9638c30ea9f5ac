#include "application/Household.h"

#include <QProcess>
#include <algorithm>
#include <filesystem>
#include <utility>

#include "ZANCocoaFramework/ZAN_Translation.h"
#include "core/record/Preferences.h"
#include "core/record/Siblings.h"
#include "desktop/Texts.h"
#include "platform/linux/ProcessTable.h"

namespace corvana {

namespace {

constexpr const char* kLock = ".Corvana 9.lock";
/// Another start asks the first with it; the details have the token by which a window may come to
/// the front, and the home.
constexpr const char* kRaise = "RaiseMainWindow";
constexpr int kBurst = 150;  // ms
constexpr double kAskAgain = 2;

/// The files that are shown or merged, and what it means when one of them is another.
struct Watched {
  std::string_view file;
  Change change;
};
constexpr Watched kWatched[] = {
    {DataFolder::kActions, Change::tree},
    {DataFolder::kChanges, Change::tree},
    {DataFolder::kHistory, Change::history},
    {DataFolder::kErrors, Change::history},
    {DataFolder::kLog, Change::messages},
    {DataFolder::kSettings, Change::preferences},
    {DataFolder::kSchedulerSettings, Change::preferences},
};

bool isSameFolder(const std::string& one, const std::string& other) {
  std::error_code unknown;
  return one == other || std::filesystem::equivalent(one, other, unknown);
}

}  // namespace

Household::Household(SystemLog& log, const std::string& texts)
    : mLog(log),
      mClock(&mLoop),
      mBus(mLoop, log),
      mNotifications(mBus, mLoop, log),
      mAsker(mBus),
      mVolumes(mMachine.loginName(), mMachine.homeFolder(), mLoop, mLoop),
      mStrings(mMachine.regionName(), mMachine.timeZoneName()),
      mCalendar(mMachine.timeZoneName(), mMachine.regionName()),
      mStore(mClock, mMachine, log),
      mTree(mStore.tree(), mClock, log, mTexts),
      mHistory(mStore),
      mChanges(mLoop) {
  const std::string& resources =
      texts.empty() ? mStore.installPaths().installPathForCode(InstallPaths::schedulerResources)
                    : texts;
  if (const Outcome loaded = mTexts.load(resources, mMachine.languageNames()); !loaded)
    mLog.write(loaded.error().text);
  mFilesTimer.setSingleShot(true);
  mFilesTimer.setInterval(kBurst);
  QObject::connect(&mFilesTimer, &QTimer::timeout, &mFilesTimer, [this] { filesChanged(); });
  QObject::connect(&mFolderWatch, &QFileSystemWatcher::directoryChanged, &mFilesTimer, [this] {
    if (!mFilesTimer.isActive()) mFilesTimer.start();
  });
}

Household::~Household() { end(); }

QString Household::text(std::string_view key) const { return qt(mTexts.text(key)); }

QString Household::text(std::string_view key, ZAN_StringUtils::Arguments arguments) const {
  return qt(mTexts.text(key, arguments));
}

QString Household::said(std::string_view english) const {
  return qt(translated(mTexts, english, ReadAt::window));
}

bool Household::claim() {
  auto lock = ZAN_FileLock::acquire(
      ZAN_FilesUtils::joinedPath(mStore.folder().hiddenFolderPath(), kLock), 0, {});
  if (lock) {
    mInstance = std::move(*lock);
    return true;
  }
  if (lock.error().kind != ErrorKind::unavailable) {
    // A home that cannot be written to will say so itself; two windows do no harm there.
    mLog.write(lock.error().text);
    return true;
  }
  std::string token = qEnvironmentVariable("XDG_ACTIVATION_TOKEN").toStdString();
  if (token.empty()) token = qEnvironmentVariable("DESKTOP_STARTUP_ID").toStdString();
  // It waits until the bus has it, since this program ends at once.
  const Outcome posted = BusAgentClient().post(
      {std::string(kMainAppliNotification), kRaise,
       ZAN_Value::dictionary({{"Home", mMachine.homeFolder()}, {"ActivationToken", token}})});
  if (!posted)
    mLog.write("Corvana 9 is open already, and cannot be asked for: " + posted.error().text);
  return false;
}

void Household::begin() {
  mTakesPart = true;
  mStore.createMissingDataFiles();
  mNotifications.observe(std::string(kMainAppliNotification),
                         [this](const DistributedNotification& message) { heard(message); });
  mWatch = std::make_unique<BusWatch>(
      mBus, BusWatch::Handlers{[](const DistributedNotification&) {}, [this] { askAgent(); },
                               [this](bool isOn) {
                                 if (isOn) announce();
                                 askAgent();
                               }});
  mShares = std::make_unique<GvfsShares>(mBus, [this](std::vector<Mount> all) {
    mVolumes.setShares(std::move(all));
    mChanges.note(Change::volumes);
  });
  mVolumes.observe({[this](const Mount&) { mChanges.note(Change::volumes); },
                    [this](const Mount&) { mChanges.note(Change::volumes); }});
  mFolderWatch.addPath(qt(mStore.folder().pathOf("")));
  mBus.whenConnected(this, [this] {
    announce();
    askAgent();
  });
  filesChanged();
  if (!mBus.isConnected()) lookForSilentAgent();
}

void Household::end() {
  if (!std::exchange(mTakesPart, false)) return;
  tellAgent("ApplicationWillQuit");
  mBus.forget(this);
  mNotifications.stopObserving(std::string(kMainAppliNotification));
  mVolumes.observe({});
  mWatch.reset();
  mShares.reset();
  mFilesTimer.stop();
  mStore.finishSaving();
}

void Household::announce() { tellAgent("ApplicationIsLaunched"); }

void Household::heard(const DistributedNotification& message) {
  if (message.object == kRaise) {
    if (isSameFolder(message.userInfo.string("Home"), mMachine.homeFolder()) && onRaise)
      onRaise(message.userInfo.string("ActivationToken"));
    return;
  }
  // Another home's agent on the same bus is none of ours.
  if (mAgent == Agent::elsewhere) return;
  if (message.object == "ActionListChanged" || message.object == "UpdateHistory" ||
      message.object == "LogChanged") {
    mFilesTimer.start();
  } else if (message.object == "ReturnCVAProcessStatus" ||
             message.object == "ReturnCVASchedulerStatus") {
    askAgent();
  } else if (onMessage) {
    onMessage(message.object, message.userInfo);
  }
}

void Household::askAgent() {
  if (std::exchange(mAsks, true)) {
    mAsksAgain = true;
    return;
  }
  mAsker.status([this](const Result<ZAN_Value>& status) {
    learn(status);
    mAsker.queue([this](const Result<ZAN_Value>& queue) {
      mQueue = queue && mAgent == Agent::answers ? *queue : ZAN_Value();
      mAsks = false;
      mChanges.note(Change::queue);
      if (std::exchange(mAsksAgain, false)) askAgent();
    });
  });
}

void Household::learn(const Result<ZAN_Value>& status) {
  if (status && !isSameFolder(status->string("home"), mMachine.homeFolder())) {
    mAgent = Agent::elsewhere;
    mStatus = {};
  } else if (status) {
    mAgent = Agent::answers;
    mStatus = *status;
    mStartsAgent = false;
  } else {
    mStatus = {};
    lookForSilentAgent();
  }
  mChanges.note(Change::execution);
  mChanges.note(Change::progress);
}

void Household::lookForSilentAgent() {
  const auto running = ProcessTable(mMachine.homeFolder()).list();
  const bool runs = std::ranges::any_of(running, [](const RunningProcess& process) {
    return process.bundleExecutable == "Corvana 9 Scheduler";
  });
  mAgent = runs ? Agent::silent : Agent::absent;
  mChanges.note(Change::execution);
  if (!runs && mTakesPart && mStartsAgent) startAgent();
}

Circumstances Household::circumstances() {
  if (mAgent == Agent::answers) {
    return {.disabled = !mStatus["enabled"].boolValue() || mStatus["disabledWhenDone"].boolValue(),
            .otherMachine = mStatus["otherStartupDisk"].boolValue(),
            .paused = mStatus["paused"].boolValue(),
            .context = static_cast<ActionContext>(mStatus.integer("context"))};
  }
  const ZAN_Value settings = mStore.settings().schedulerSettings();
  return {.disabled = settings.integer(PreferenceKey::scheduleDisabled) != 0,
          .context = static_cast<ActionContext>(settings.integer(PreferenceKey::currentContext))};
}

void Household::startAgent() {
  mStartsAgent = false;
  const std::string& program =
      mStore.installPaths().installPathForCode(InstallPaths::schedulerExecutable);
  if (!QProcess::startDetached(qt(program), {})) mLog.write(program + ": could not be started");
  // It is heard of on the bus; without one its process tells.
  mLoop.performAfter(kAskAgain, [this] {
    if (mTakesPart && mAgent != Agent::answers) askAgent();
  });
}

void Household::tellAgent(std::string_view object, const ZAN_Value& userInfo) {
  if (mAgent == Agent::elsewhere) return;
  mNotifications.post({std::string(kSchedulerNotification), std::string(object), userInfo});
}

void Household::tellExecution(std::string_view object, const ZAN_Value& userInfo) {
  if (mAgent == Agent::elsewhere) return;
  mNotifications.post({std::string(kExecuteNotification), std::string(object), userInfo});
}

void Household::launch(std::int64_t reference, BusAgentAsker::Answered done) {
  mAsker.launch(reference, std::move(done));
}

Outcome Household::edit(const std::function<Outcome(ProgrammedAction& root)>& change) {
  Outcome done = mTree.editStoredTree(change);
  if (done) {
    tellAgent("ActionListChanged");
    mChanges.note(Change::tree);
  }
  return done;
}

void Household::filesChanged() {
  if (!mTakesPart) return;
  for (const Watched& one : kWatched) {
    const auto identity = mStore.files().identity(mStore.folder().pathOf(one.file));
    const auto [seen, isNew] = mSeen.try_emplace(std::string(one.file), identity);
    if (!isNew && seen->second == identity) continue;
    seen->second = identity;
    // Read anew by whoever looks next.
    if (one.change == Change::tree) mTree.releaseRootItem();
    mChanges.note(one.change);
    if (one.file == DataFolder::kChanges) merge();
  }
}

void Household::merge() {
  // What could not be written stays in the list, is logged, and is merged with the next change.
  static_cast<void>(mTree.updateActionsWithChanges(true));
}

}  // namespace corvana
