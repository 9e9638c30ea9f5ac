#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "actions/ActionContext.h"
#include "core/record/Deadline.h"
#include "core/work/ComingActions.h"

namespace corvana {

class AutomaticExecution;
class VolumeIdentity;
struct Records;

/// What became of a wish to execute an action.
enum class QueueAddition {
  queued,
  alreadyQueued,
  unknownAction,   ///< no such action, or one without settings
  treeUnreadable,  ///< the file with the actions cannot be read at the moment
  notPermitted,    ///< launching it by hand, or from another machine, is switched off for it
  volumesMissing,  ///< its volumes are not all mounted and it asks for them
};

/// The ordered list of actions that wait for execution. The first one is running or about to run;
/// nothing is ever put before it. One entry point applies the refusals and writes the report lines;
/// every change is stored in the preferences, so that the queue survives a restart. When the clock
/// was set back, the dates of the waiting records move along with the deadlines. Thread: main.
class ActionQueue {
 public:
  ActionQueue(Records& records, VolumeIdentity& volumes, AutomaticExecution& automatic);

  /// Adds an action. A negative `row` appends, 0 counts as 1 while the queue is not empty, a row
  /// past the end appends. Marks the action's last schedule date, also when it is then refused for
  /// missing volumes: now, or for an automatic addition (neither by hand nor from another machine)
  /// the later of now and `launchTime`, so that an addition ahead of time does not make the same
  /// occasion due twice.
  QueueAddition addActionToQueue(std::int64_t ref, ReferenceTime launchTime, int row,
                                 bool manualLaunch, bool remoteLaunch, bool estimateSize);
  /// The same, automatic; `due` is when its schedule wanted it, for one that comes late.
  QueueAddition addActionToQueue(std::int64_t ref, ReferenceTime launchTime, int row,
                                 std::optional<ReferenceTime> due = std::nullopt);
  /// A wish of somebody who hears no answer. What is refused is told in the report, and by a notice
  /// where it comes from this machine.
  void addWish(std::int64_t ref, ReferenceTime launchTime, bool remote, bool estimateSize);

  /// Has a task done with the copies of an action: before all that waits and is none, and although
  /// execution is switched off or the action may not be launched. The action's dates stay.
  /// `request` is the name of its file in the hidden folder; without the file it is not queued.
  QueueAddition addTask(std::int64_t ref, std::string_view task, std::string_view request);
  /// The title of its action, with what it is when that is no run.
  std::string titleOf(const QueueRecord& record) const;
  /// The file of a task.
  std::string requestPath(const QueueRecord& record) const;

  /// Stores all occasions, the head among them, synchronised, and then the queue without its head
  /// in the preferences (an empty list when the queue is not to be kept).
  void saveActionsQueue();
  /// Takes up what was stored, in order and with its dates, and writes nothing: what waited comes
  /// into the queue, what had begun becomes `unfinished`. When the agent was started from another
  /// machine or the queue is not to be kept, what waited becomes `dropped`. Without stored
  /// occasions the list in the preferences holds. Elements that are no records are skipped.
  void restoreActionsQueue();
  /// Executions that had begun and whose end was not seen; they count as contained.
  const std::vector<QueueRecord>& unfinished() const { return mUnfinished; }
  /// What waited and is not taken up, until the next saving.
  const std::vector<QueueRecord>& dropped() const { return mDropped; }
  /// It is known what became of the first of the unfinished ones; it leaves. With `repeated` it
  /// is first in the queue, as one try more.
  void settleUnfinished(bool repeated);

  /// Says in the report, under that key, of each record that it was not run. Their names for a
  /// message, not too many.
  std::string tellNotRun(const std::vector<QueueRecord>& records, std::string_view key);

  /// Removes the records at these rows, as the user wants it; the head only while no execution
  /// runs. The report names them.
  void removeFromQueue(const std::set<std::size_t>& rows);
  /// Moves a record so that it stands at `to` afterwards; a running head neither moves nor is
  /// passed.
  void moveRecord(std::size_t from, std::size_t to);
  /// Removes, from the last record down to position 2, those whose action exists and belongs to a
  /// context other than `context`. Positions 0 and 1 stay. What leaves is told.
  void removeRecordsOfOtherContexts(ActionContext context);

  /// Enqueues what the main application wrote into a request file, as launched by hand; enables
  /// execution unless the user switched it off; deletes the file.
  void executeActionsInFile(const std::string& path);
  /// Enqueues every listed action whose date is less than 60 s away, past ones too, each at its own
  /// date and with the refusals of a launch by hand. Says how many were really added.
  std::size_t enqueueActionsDueWithinAMinute(std::span<const NextAction> nextActions);

  const std::vector<QueueRecord>& actionsList() const { return mActionsList; }
  bool empty() const { return mActionsList.empty(); }
  /// Whether a run of the action, or a count of what it has to copy, is there.
  bool contains(std::int64_t ref) const;
  /// Only while the queue is not empty.
  const QueueRecord& head() const { return mActionsList.front(); }

  // Execute-now requests: records of the queue that run although execution is disabled.
  const std::vector<QueueRecord>& executeNowActionsList() const { return mExecuteNowActionsList; }
  /// Asks for a queued action at once: it moves behind a running head, due now. Whether it was
  /// queued.
  bool executeNow(std::int64_t ref);
  void clearExecuteNowActions();
  /// Drops the requests whose record has left the queue.
  void dropFinishedExecuteNowActions();
  /// Whether a record waits that was asked for at once.
  bool hasExecuteNowAction() const;

  /// Performs `body`; what it changes is saved and told once, at its end.
  void batch(const std::function<void()>& body);
  /// The same for `body` that returns, as this does, whether more follow at once: then it is saved
  /// and told with those, at the latest with the one that says that none do.
  bool burst(const std::function<bool()>& body);

  // For the supervision of executions only.
  /// The head is about to be started, which is stored first; nothing: it did not start.
  void headBegins(std::optional<ReferenceTime> at);
  void setHeadIsRunning(bool running) { mHeadIsRunning = running; }
  bool headIsRunning() const { return mHeadIsRunning; }
  /// Puts a copy of the head at position 1, as one try more: the crashed action runs again right
  /// after.
  void insertCopyOfHead();
  /// Removes the head and saves; nothing on an empty queue.
  void removeHead();

 private:
  QueueAddition add(const QueueRecord& record, int row, bool manualLaunch, bool remoteLaunch,
                    ReferenceTime scheduleDate);
  QueueAddition addOne(QueueRecord record, int row, bool manualLaunch, bool remoteLaunch,
                       ReferenceTime scheduleDate);
  void changed();
  bool isThere(const QueueRecord& asked) const;
  void endBatch(bool moreFollow);
  QueueRecord erase(std::size_t row);
  void bound(QueueRecord& record) const;
  void moveDates(double jump);

  /// Seconds without launches of another machine that were refused, until the next is told again.
  static constexpr double kQuietBetweenRefusals = 300;

  Records& m;
  VolumeIdentity& mVolumes;
  AutomaticExecution& mAutomatic;
  std::vector<QueueRecord> mActionsList;
  std::vector<QueueRecord> mUnfinished;
  std::vector<QueueRecord> mDropped;
  std::vector<QueueRecord> mExecuteNowActionsList;
  bool mHeadIsRunning = false;
  int mBatchDepth = 0;
  bool mChangedInBatch = false;
  bool mMarkedInBatch = false;
  bool mIsOwed = false;
  BurstGate mRefusedRemotely{kQuietBetweenRefusals};
};

}  // namespace corvana
