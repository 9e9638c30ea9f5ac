#include "command/CommandHome.h"

#include "actions/ScheduleSentence.h"
#include "core/record/Preferences.h"
#include "platform/qt/GvfsShares.h"

namespace corvana {

namespace {

constexpr std::string_view kResources =
    "Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/Resources";
constexpr std::string_view kExecute =
    "Corvana 9.app/Contents/Resources/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute";
constexpr std::string_view kTools = "Corvana 9.app/Contents/Resources/tools";
constexpr int kLevels = 4;

}  // namespace

void ConsoleLog::write(const std::string& line) {
  Writer(mConsole, false).complain(printable(line));
}

CommandHome::CommandHome(const Console& console)
    : mLog(console),
      mStore(mClock, mMachine, mLog),
      mTree(mStore.tree(), mClock, mLog, mTexts),
      mTools(ZAN_DateUtils(mMachine.timeZoneName(), mMachine.regionName()), mClock.now()) {}

bool CommandHome::isThere() const {
  return ZAN_FilesUtils::isFolder(DataFolder(mMachine.homeFolder()).pathOf(""));
}

ProgrammedAction* CommandHome::action(std::int64_t reference) {
  return isThere() ? mTree.rootItem().actionForReference(reference) : nullptr;
}

Circumstances CommandHome::storedCircumstances() {
  if (!isThere()) return {};
  const ZAN_Value settings = mStore.settings().schedulerSettings();
  return {.disabled = settings.integer(PreferenceKey::scheduleDisabled) != 0,
          .context = static_cast<ActionContext>(settings.integer(PreferenceKey::currentContext))};
}

ZAN_Value CommandHome::comingRuns(std::size_t count, const Circumstances& circumstances) {
  ProgrammedAction::Nodes actions;
  if (isThere()) mTree.rootItem().getListOfAllProgrammedActions(actions);
  ComingRuns runs(calendar(), now(), circumstances,
                  [this](const std::string& line) { mLog.write(line); });
  for (const ProgrammedAction* action : actions)
    runs.add(action->schedule(), action->getActionContext());
  ZAN_Value list = ZAN_Value::array();
  while (list.size() < count) {
    const auto run = runs.next();
    if (!run) break;
    const ProgrammedAction& action = *actions[run->action];
    list.append(ZAN_Value::dictionary({{"date", run->date},
                                       {"ref", action.getReference()},
                                       {"title", action.getTitle()},
                                       {"shutdown", run->shutDown},
                                       {"held", nameOf(run->hold)}}));
  }
  return list;
}

std::unique_ptr<Volumes> CommandHome::volumes(double patience, bool areAllWanted) {
  return GvfsShares::volumesNow(mMachine, patience, areAllWanted);
}

/// Something of the product: beside the folder of this command, or where an installation puts it.
std::string CommandHome::installed(std::string_view inside) const {
  const std::string executable = mMachine.executablePath();
  std::string_view folder = ZAN_FilesUtils::parentPath(executable);
  for (int level = 0; level < kLevels; ++level) {
    for (const std::string_view product : {"", "lib/corvana9"}) {
      const std::string place =
          product.empty() ? std::string(folder) : ZAN_FilesUtils::joinedPath(folder, product);
      const std::string path = ZAN_FilesUtils::joinedPath(place, inside);
      if (ZAN_FilesUtils::exists(path)) return path;
    }
    folder = ZAN_FilesUtils::parentPath(folder);
  }
  return {};
}

std::string CommandHome::executeProgram() const { return installed(kExecute); }

Outcome CommandHome::loadAgentTexts(ZAN_StringTable& texts) const {
  const std::string resources = installed(kResources);
  if (!resources.empty()) return texts.load(resources, mMachine.languageNames());
  return Error{ErrorKind::absent,
               mMachine.executablePath() + ": the agent is not installed beside it"};
}

Result<std::string> CommandHome::tool(std::string_view name) const {
  std::string path = installed(ZAN_FilesUtils::joinedPath(kTools, name));
  if (!path.empty()) return path;
  return Error{ErrorKind::absent,
               mMachine.executablePath() + ": the agent is not installed beside it"};
}

const ZAN_StringTable& CommandHome::texts() {
  if (mTextsAreRead) return mTexts;
  mTextsAreRead = true;
  if (const Outcome loaded = loadAgentTexts(mTexts); !loaded) mLog.write(loaded.error().text);
  return mTexts;
}

std::string CommandHome::scheduleText(const ZAN_Value& settings) {
  const ZAN_StringUtils strings("C");
  return ScheduleSentence(calendar(), texts(), strings).inTerminal(settings);
}

std::string CommandHome::dateText(ReferenceTime date) const {
  return calendar().format(date, "%a %Y-%m-%d %H:%M");
}

}  // namespace corvana
