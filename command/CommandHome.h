#pragma once

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "command/Answer.h"
#include "command/Commands.h"
#include "platform/Volumes.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemClock.h"

namespace corvana {

/// What others write in a log, as reasons on the console's `err`.
class ConsoleLog final : public SystemLog {
 public:
  explicit ConsoleLog(const Console& console) : mConsole(console) {}
  void write(const std::string& line) override;

 private:
  const Console& mConsole;
};

/// The data folder of the user's home as a command opens it, with what else it needs to know of the
/// machine. What the store has to say in the log goes to the console's `err`. Making one touches
/// nothing on disk.
class CommandHome {
 public:
  explicit CommandHome(const Console& console);

  Machine& machine() { return mMachine; }
  ActionStore& store() { return mStore; }
  ActionTree& tree() { return mTree; }
  /// Whether there is a data folder; without one nothing should be read, since reading creates it.
  bool isThere() const;
  /// Calendar and now, taken once when the command began.
  const ActionsTools& tools() const { return mTools; }
  const ZAN_DateUtils& calendar() const { return mTools.calendar(); }
  ReferenceTime now() const { return mTools.now(); }

  /// The action with that reference; null when there is none.
  ProgrammedAction* action(std::int64_t reference);
  /// The coming runs of all actions in order, `count` at most: an array of {"date" (as a number),
  /// "ref", "title", "shutdown", "held"}. With "shutdown" it runs at a shut-down, not at the date;
  /// "held" names what would keep it from running, were it now (`nameOf`).
  ZAN_Value comingRuns(std::size_t count, const Circumstances& circumstances);
  /// What an agent finds in its files when it starts.
  Circumstances storedCircumstances();
  /// When an action runs next.
  std::optional<Forecast::Run> nextRun(const Schedule& schedule) const {
    return Forecast(calendar(), schedule).next(now());
  }
  /// The volumes of the machine for one look around. `patience`: how many seconds one of them may
  /// take to answer; `areAllWanted`: all together.
  std::unique_ptr<Volumes> volumes(double patience, bool areAllWanted = false);
  /// Reads the agent's texts, which lie in its bundle: beside the folder of this command, or where
  /// an installation puts it.
  Outcome loadAgentTexts(ZAN_StringTable& texts) const;
  /// The execute program that is installed with this command; empty when there is none.
  std::string executeProgram() const;
  /// Path of a tool that comes with the agent.
  Result<std::string> tool(std::string_view name) const;

  /// The agent's texts in the user's language, read at the first call; empty, which is said once,
  /// where the agent is not installed.
  const ZAN_StringTable& texts();
  /// What makes the action of a record run, in the user's language, with 24 hours a day.
  std::string scheduleText(const ZAN_Value& settings);
  /// "Tue 2026-11-24 08:00".
  std::string dateText(ReferenceTime date) const;

 private:
  std::string installed(std::string_view inside) const;

  SystemClock mClock;
  LinuxMachine mMachine;
  ConsoleLog mLog;
  ZAN_StringTable mTexts;
  ActionStore mStore;
  ActionTree mTree;
  ActionsTools mTools;
  bool mTextsAreRead = false;
};

/// What is wrong with the actions, the settings and the history as they are stored, with a remedy:
/// damaged, not readable, or damaged within the last month and put aside. Reads them.
std::vector<std::string> storageTroubles(CommandHome& home);

/// The answer of a command that tells how things are, which is not all when there are such
/// troubles: they become its reason, and it has failed.
Answer withStorageTroubles(Answer answer, CommandHome& home);

}  // namespace corvana
