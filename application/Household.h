#pragma once

#include <QFileSystemWatcher>
#include <QString>
#include <QTimer>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "actions/History.h"
#include "core/record/Changes.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/SystemClock.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/BusConnection.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/GvfsShares.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

/// The user's backups as the main application has them open: what is stored, the machine, and the
/// agent of this home as far as it can be reached. It is one of several programs on the same files:
/// between `begin` and `end` it is this one that merges the list of changes into the tree, tells
/// the agent what it has changed, and hears what the agent posts. Nothing here waits for another
/// program. Thread: main.
class Household {
 public:
  enum class Agent {
    unknown,  ///< it has not answered yet
    answers,
    silent,     ///< it runs, but not on this session bus, or it does not answer
    elsewhere,  ///< the one on this session bus works in another home
    absent
  };

  /// Reads the texts, and nothing else yet; from `texts`, where this program is in no bundle. Qt's
  /// application object is there.
  explicit Household(SystemLog& log, const std::string& texts = {});
  Household(const Household&) = delete;
  Household& operator=(const Household&) = delete;
  ~Household();

  /// Whether this is the only program of its kind in this home; it stays so until the end. When
  /// another one is there already, that has been asked to come to the front.
  bool claim();
  /// From now on it takes part; starts the agent when none runs.
  void begin();
  /// Says good-bye. Nothing is merged and nothing heard any more.
  void end();

  // What is stored, and what it takes to read it.
  ActionStore& store() { return mStore; }
  /// The stored actions as they are now, with what is not merged yet.
  ProgrammedAction& actions() { return mTree.rootItem(); }
  ActionTree& tree() { return mTree; }
  History& history() { return mHistory; }
  Volumes& volumes() { return mVolumes; }
  Machine& machine() { return mMachine; }
  QtRunLoop& loop() { return mLoop; }
  const ZAN_DateUtils& calendar() const { return mCalendar; }
  const ZAN_StringUtils& strings() const { return mStrings; }
  ReferenceTime now() const { return mClock.now(); }
  ActionsTools tools() const { return {mCalendar, now()}; }
  const ZAN_StringTable& texts() const { return mTexts; }
  /// A text that the user sees; empty for a key that is not there.
  QString text(std::string_view key) const;
  QString text(std::string_view key, ZAN_StringUtils::Arguments arguments) const;
  /// What a subcommand or the execute program has said in English, as the user reads it.
  QString said(std::string_view english) const;

  /// Changes the stored tree so that nothing that others do is lost, and tells the agent. The
  /// reason when it failed; nothing has changed then.
  Outcome edit(const std::function<Outcome(ProgrammedAction& root)>& change);

  // The agent.
  Agent agent() const { return mAgent; }
  /// As it answered last (see core/drive/StateAnswers); null unless it answers.
  const ZAN_Value& status() const { return mStatus; }
  const ZAN_Value& queue() const { return mQueue; }
  /// What holds actions up, from the agent, else from its files.
  Circumstances circumstances();
  void startAgent();
  /// How it stands is asked anew; `changes` tell when it has answered.
  void askAgent();
  /// Tells it something in the vocabulary of its notifications.
  void tellAgent(std::string_view object, const ZAN_Value& userInfo = {});
  void tellExecution(std::string_view object, const ZAN_Value& userInfo = {});
  /// Has it run a backup now; `done` hears "queued" or why not.
  void launch(std::int64_t reference, BusAgentAsker::Answered done);
  BusAgentAsker& asker() { return mAsker; }

  /// Whoever shows something listens here; the tree, the history, the volumes, the state of the
  /// agent ("execution", "progress", "queue") and the settings ("preferences") are told of.
  Changes& changes() { return mChanges; }
  /// What the agent posts to the main application beyond changes: "ShowLatestActions" and the like.
  std::function<void(const std::string& object, const ZAN_Value& userInfo)> onMessage;
  /// Another start of the program has asked for this one.
  std::function<void(const std::string& activationToken)> onRaise;

 private:
  void heard(const DistributedNotification& message);
  void agentChanged();
  void learn(const Result<ZAN_Value>& status);
  void lookForSilentAgent();
  void filesChanged();
  void merge();
  void announce();

  SystemLog& mLog;
  QtRunLoop mLoop;
  SystemClock mClock;
  LinuxMachine mMachine;
  BusConnection mBus;
  BusNotifications mNotifications;
  BusAgentAsker mAsker;
  LinuxVolumes mVolumes;
  ZAN_StringTable mTexts;
  ZAN_StringUtils mStrings;
  ZAN_DateUtils mCalendar;
  ActionStore mStore;
  ActionTree mTree;
  History mHistory;
  Changes mChanges;
  ZAN_FileLock mInstance;
  bool mTakesPart = false;
  bool mStartsAgent = true;  ///< none was seen yet; one that leaves later was told to

  Agent mAgent = Agent::unknown;
  ZAN_Value mStatus;
  ZAN_Value mQueue;
  bool mAsks = false;
  bool mAsksAgain = false;

  QFileSystemWatcher mFolderWatch;
  QTimer mFilesTimer;  ///< so that a burst of writings is looked at once
  std::map<std::string, std::optional<ZAN_FileIdentity>, std::less<>> mSeen;
  std::unique_ptr<BusWatch> mWatch;
  std::unique_ptr<GvfsShares> mShares;
};

}  // namespace corvana
