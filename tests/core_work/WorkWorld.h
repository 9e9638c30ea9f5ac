#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionLog.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ExecutionCounters.h"
#include "core/record/DebugLog.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "core/record/SiblingWatch.h"
#include "core/record/SurveyExecution.h"
#include "core/work/ActionQueue.h"
#include "core/work/Contexts.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "mail/smtp/MailSender.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "volumes/VolumeIdentity.h"

namespace corvana::test {

/// Keeps what is sent; a server named "nowhere" cannot even be tried.
class RecordingMail final : public MailSender {
 public:
  using MailSender::MailSender;
  Outcome send(const MailSettings& settings, const std::string& subject, const std::string& body,
               Done) override {
    if (settings.server == "nowhere")
      return Error{ErrorKind::unavailable, "nowhere: no such server"};
    sent.push_back({settings, subject, body});
    return {};
  }
  struct Mail {
    MailSettings settings;
    std::string subject;
    std::string body;
  };
  std::vector<Mail> sent;
};

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
    log.showStandardMessage = [this](const std::string& text, int code) {
      messages.displayStandardMessage(text, code);
    };
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
  Platform platform = machine.platform();
  ActionStore store{machine.clock, machine.machine, machine.systemLog};
  ZAN_StringTable texts;
  ZAN_StringUtils strings{"en_US.UTF-8", "UTC"};
  ActionTree tree{store.tree(), machine.clock, machine.systemLog, texts};
  ActionLog actionLog{store};
  ExecutionCounters counters{store};
  SchedulerState state{machine.clock.now()};
  Preferences preferences{store.settings(), machine.machine, state.deadlines, machine.clock.now()};
  SurveyExecution survey{machine.clock, machine.runLoop, "Corvana 9 Scheduler"};
  SiblingWatch siblingWatch{machine.processes, survey,
                            store.installPaths().installPathForCode(InstallPaths::mainAppBundle),
                            store.installPaths().installPathForCode(InstallPaths::executeBundle)};
  SiblingChannel siblings{machine.notifications, siblingWatch};
  SchedulerLog log{machine.clock, actionLog, counters, siblings, preferences, state, texts};
  DebugLog debugLog{machine.clock, store.texts(), machine.clock.now(), true};
  Messages messages{machine.clock,
                    machine.runLoop,
                    machine.machine,
                    machine.userInterface,
                    state.deadlines,
                    preferences,
                    log,
                    store.texts(),
                    strings};
  VolumeIdentity volumes{machine.volumes};
  RecordingMail mail{{machine.clock, machine.runLoop, machine.machine, machine.processes,
                      machine.systemLog, machine.network}};
  WorkSurroundings surroundings{platform, tree,         store,    counters, preferences,
                                state,    log,          debugLog, survey,   messages,
                                siblings, siblingWatch, volumes,  texts,    strings};
  ActionQueue queue{surroundings};
  TriggerEvaluation evaluation{surroundings, queue, mail};
  ExecuteSupervisor supervisor{surroundings, queue};
  Contexts contexts{surroundings, queue};
};

/// The one folder description that the tests need: an item on a volume, by itself the start-up
/// disk.
inline ZAN_Value item(const std::string& path, std::uint64_t volumeSize = 500'000'000'000) {
  return ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                {"VolumeFolderPathLocalized", path},
                                {"VolumeFolderVolumeSize", volumeSize}});
}

}  // namespace corvana::test
