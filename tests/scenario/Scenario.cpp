#include "tests/scenario/Scenario.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"

namespace corvana {

namespace fs = std::filesystem;

namespace {

ReferenceTime parse(const ZAN_DateUtils& calendar, std::string_view civil) {
  ZAN_DateUtils::Components parts;
  std::sscanf(std::string(civil).c_str(), "%d-%d-%d %d:%d:%d", &parts.year, &parts.month,
              &parts.day, &parts.hour, &parts.minute, &parts.second);
  return calendar.dateForComponents(parts);
}

}  // namespace

Scenario::Scenario(std::string_view begin, const std::string& zone)
    : machine(parse(ZAN_DateUtils(zone, "C"), begin)),
      mCalendar(zone, "C"),
      mStore(machine.clock, machine.machine, machine.systemLog) {
  machine.machine.timeZone = zone;
  machine.input.tellsOfUse = true;
  const fs::path scheduler = machine.machine.bundle;
  fs::create_directories(scheduler / "Contents");
  fs::create_symlink(CORVANA_RESOURCES, scheduler / "Contents/Resources");
  const fs::path execute =
      mStore.installPaths().installPathForCode(InstallPaths::executeExecutable);
  fs::create_directories(execute.parent_path());
  std::ofstream(execute) << "execute";
  machine.processes.script([this](const std::vector<std::string>& arguments) {
    ChildScript script;
    script.seconds = 20;
    if (arguments.size() < 2) return script;
    const std::int64_t ref = std::stoll(arguments[1]);
    if (const auto known = scripts.find(mTitles[ref]); known != scripts.end())
      script = known->second;
    if (executionsAreRecorded && script.status == 0 && !script.onEnd)
      script.onEnd = [this, ref](StartedChild&) {
        (void)mStore.tree().appendToChangesList(
            ZAN_Value::dictionary({{"Ref", ref},
                                   {"ChangesKey", "LastExecutionDate"},
                                   {"ChangesObject", ZAN_Value::date(machine.clock.now())}}));
      };
    return script;
  });
}

Scenario::~Scenario() = default;

std::int64_t Scenario::action(const std::string& title, const ZAN_Value& record) {
  ZAN_Value settings =
      ZAN_Value::dictionary({{"Ref", ++mLastRef},
                             {"Title", title},
                             {"Mode", 2},
                             {"TriggerAutomatic", 1},
                             {"CreationDate", ZAN_Value::date(machine.clock.now())}});
  for (const auto& entry : record.entries()) settings.setValue(entry.key.stringView(), entry.value);
  mTitles[mLastRef] = title;
  mRecords.append(settings);
  return mLastRef;
}

void Scenario::writeTree() {
  if (!mStore.tree().saveActionsTree(mRecords)) std::abort();
}

void Scenario::removeAction(std::int64_t ref) {
  for (std::size_t i = mRecords.size(); i-- > 0;) {
    if (mRecords.at(i).integer("Ref") == ref) mRecords.removeAt(i);
  }
  writeTree();
}

ReferenceTime Scenario::at(std::string_view civil) const { return parse(mCalendar, civil); }

ReferenceTime Scenario::timeOfDay(std::string_view clock) const {
  return at("2024-01-02 " + std::string(clock));
}

std::string Scenario::civil(ReferenceTime time) const {
  return mCalendar.format(time, "%Y-%m-%d %H:%M:%S");
}

void Scenario::start(bool relaunched) {
  if (agent != nullptr) kill();
  if (relaunched) {
    ZAN_Value settings = mStore.settings().schedulerSettings();
    settings.setValue("SchedulerQuitDate", ZAN_Value::date(machine.clock.now() - 1));
    if (!mStore.settings().saveSchedulerSettings(settings)) std::abort();
  }
  Platform platform = machine.platform();
  platform.agentObject = &agentObject;
  agent = std::make_unique<MainScheduler>(platform);
  agent->applicationDidFinishLaunching();
  if (mStaysAwake) stayAwake();
}

void Scenario::quit() {
  agent->terminateBySelf();
  end();
}

void Scenario::kill() {
  // Who is killed tells its child nothing.
  std::vector<std::shared_ptr<StartedChild>> deaf;
  for (const auto& child : machine.processes.starts)
    if (!std::exchange(child->script.ignoresTerminate, true)) deaf.push_back(child);
  end();
  for (const auto& child : deaf) child->script.ignoresTerminate = false;
}

void Scenario::end() {
  agent.reset();
  // What waited in the loop of that process is gone with it.
  machine.time.dropLoopEvents();
}

void Scenario::stayAwake() {
  mStaysAwake = true;
  if (agent != nullptr) agent->timer().setSleeps(false);
}

void Scenario::continueAfterRelaunch() {
  if (machine.processes.relaunches.empty()) return;
  machine.processes.relaunches.clear();
  start();
}

void Scenario::runUntil(std::string_view civil) {
  const ReferenceTime end = at(civil);
  while (machine.clock.now() < end) {
    machine.runLoop.runUntil(end);
    continueAfterRelaunch();
  }
}

void Scenario::runFor(double seconds) {
  const double end = machine.clock.monotonic() + seconds;
  // Time has whole nanoseconds, which a sum of seconds may miss.
  while (machine.clock.monotonic() < end - 1e-6) {
    machine.runLoop.runFor(end - machine.clock.monotonic());
    continueAfterRelaunch();
  }
}

void Scenario::sleepUntil(std::string_view civil) {
  if (agent != nullptr) agent->machineWillSleep();
  machine.clock.setNow(at(civil));
}

std::string Scenario::executions() const {
  std::string story;
  for (const auto& start : machine.processes.starts) {
    const auto title = mTitles.find(std::stoll(start->arguments.at(1)));
    story += civil(start->date) + " " + (title == mTitles.end() ? "?" : title->second) + "\n";
  }
  return story;
}

void Scenario::finishSaving() {
  if (agent != nullptr) agent->store().finishSaving();
}

std::string Scenario::plannedDates() {
  finishSaving();
  std::string dates;
  const ZAN_Value list = ActionLog(mStore).readLogList();
  for (const ZAN_Value& entry : list.elements())
    if (const auto date = entry["D"].asDate()) dates += civil(*date) + "\n";
  return dates;
}

std::size_t Scenario::executionsOf(const std::string& title) const {
  std::size_t count = 0;
  for (const auto& start : machine.processes.starts) {
    const auto known = mTitles.find(std::stoll(start->arguments.at(1)));
    if (known != mTitles.end() && known->second == title) ++count;
  }
  return count;
}

std::vector<std::string> Scenario::report() {
  std::ifstream file(mStore.texts().reportFileNameForDate(machine.clock.now()));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    const auto dash = line.find(" - ");
    lines.push_back(dash == std::string::npos ? line : line.substr(dash + 3));
  }
  return lines;
}

std::vector<std::int64_t> Scenario::logCodes() {
  finishSaving();
  std::vector<std::int64_t> codes;
  ActionLog log(mStore);
  const ZAN_Value list = log.readLogList();
  for (const ZAN_Value& entry : list.elements()) codes.push_back(entry.integer("C"));
  return codes;
}

ZAN_Value everyMinutes(int minutes, ReferenceTime last) {
  return ZAN_Value::dictionary({{"TriggerFrequencyPopup", 20},
                                {"TriggerScheduleMinutes", minutes},
                                {"LastScheduleDate", ZAN_Value::date(last)}});
}

ZAN_Value hourly(ReferenceTime last) {
  return ZAN_Value::dictionary(
      {{"TriggerFrequencyPopup", 21}, {"LastScheduleDate", ZAN_Value::date(last)}});
}

ZAN_Value daily(ReferenceTime time, ReferenceTime last) {
  return ZAN_Value::dictionary({{"TriggerFrequencyPopup", 1},
                                {"TriggerScheduleTime", ZAN_Value::date(time)},
                                {"LastScheduleDate", ZAN_Value::date(last)}});
}

ZAN_Value scheduled(std::vector<ZAN_Value> entries, ReferenceTime last) {
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(std::move(entries)));
  return ZAN_Value::dictionary({{"TriggerFrequencyPopup", 0},
                                {"TriggerScheduleList", ZAN_Value::data(bytes)},
                                {"LastScheduleDate", ZAN_Value::date(last)}});
}

}  // namespace corvana
