#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "core/record/Records.h"
#include "core/work/Work.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana::test {

/// Everything of the room on a simulated machine whose files are real. Tuesday 2024-01-02, 12:00
/// UTC.
struct WorkWorld {
  WorkWorld() {
    preferences.setPref("SchedulerPrefShowMessageInNotificationCenter", 1);
    preferences.savePrefs();
    preferences.loadPrefs();
    state.mScheduleDisabled = false;
    state.userWasActive(now());
    (void)texts.load(std::string(CORVANA_SOURCE_FOLDER) + "/resources", {"en"});
  }

  ReferenceTime now() const { return machine.clock.now(); }
  void advance(double seconds) { machine.runLoop.runFor(seconds); }

  /// Writes the tree.
  void setActions(std::vector<ZAN_Value> records) {
    (void)store.tree().saveActionsTree(ZAN_Value::array(std::move(records)));
    tree.releaseRootItem();
  }
  static ZAN_Value action(int ref,
                          std::initializer_list<std::pair<std::string_view, ZAN_Value>> more = {}) {
    ZAN_Value record =
        ZAN_Value::dictionary({{"Ref", ref}, {"Title", "A" + std::to_string(ref)}, {"Mode", 2}});
    for (const auto& [key, value] : more) record.setValue(key, value);
    return record;
  }
  /// Automatic, with that frequency.
  static ZAN_Value automatic(
      int ref, int frequency,
      std::initializer_list<std::pair<std::string_view, ZAN_Value>> more = {}) {
    ZAN_Value record = action(ref, more);
    record.setValue("TriggerAutomatic", 1);
    record.setValue("TriggerFrequencyPopup", frequency);
    return record;
  }
  const ZAN_Value& settings(int ref) {
    return tree.rootItem().actionForReference(ref)->getSettings();
  }
  ReferenceTime lastScheduleDate(int ref) {
    return settings(ref)["LastScheduleDate"].asDate().value_or(0);
  }
  std::vector<std::int64_t> queued() const {
    std::vector<std::int64_t> refs;
    for (const QueueRecord& record : queue.actionsList()) refs.push_back(record.ref);
    return refs;
  }
  void enqueue(std::initializer_list<int> refs) {
    for (const int ref : refs) queue.addActionToQueue(ref, now(), -1, true, false, false);
  }
  std::string report() {
    std::ifstream file(store.texts().reportFileNameForDate(std::nullopt));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::vector<std::string> notices() {
    machine.runLoop.runFor(0);
    std::vector<std::string> result;
    for (const auto& notice : machine.userInterface.notifications) result.push_back(notice.text);
    return result;
  }
  /// Places the execute program, which then starts.
  std::string installExecute() {
    const std::string path =
        store.installPaths().installPathForCode(InstallPaths::executeExecutable);
    return machine.folder.write(path.substr(machine.folder.path().size() + 1), "");
  }
  std::string dataFile(const std::string& name) {
    return store.folder().dataFolderPathWithFileName(name);
  }

  SimulatedPlatform machine;
  Records records{machine.platform()};
  ActionStore& store = records.store;
  ZAN_StringTable& texts = records.texts;
  ZAN_StringUtils& strings = records.strings;
  ActionTree& tree = records.tree;
  ActionLog& actionLog = records.history.log();
  ExecutionCounters& counters = records.history.counters();
  SchedulerState& state = records.state;
  Preferences& preferences = records.preferences;
  SiblingWatch& siblingWatch = records.siblingWatch;
  SiblingChannel& siblings = records.channel;
  SchedulerLog& log = records.log;
  Messages& messages = records.messages;
  Work work{records};
  VolumeIdentity& volumes = work.volumes;
  ActionQueue& queue = work.queue;
  TriggerEvaluation& evaluation = work.evaluation;
  ExecuteSupervisor& supervisor = work.supervisor;
  Contexts& contexts = work.contexts;
};

/// The records as whoever asked for them knows them.
inline std::vector<QueueRecord> asked(std::vector<QueueRecord> records) {
  for (QueueRecord& record : records) record.scheduleDate.reset();
  return records;
}

/// The one folder description that the tests need: an item on a volume, by itself the start-up
/// disk.
inline ZAN_Value item(const std::string& path, std::uint64_t volumeSize = 500'000'000'000) {
  return ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                {"VolumeFolderPathLocalized", path},
                                {"VolumeFolderVolumeSize", volumeSize}});
}

}  // namespace corvana::test
