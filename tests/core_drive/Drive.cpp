#include "tests/core_drive/Drive.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "core/record/Siblings.h"

namespace corvana {

Drive::Drive(bool withMainApp) {
  const ReferenceTime now = machine.clock.now();
  action("Photos", daily(timeOfDay("18:00"), now));
  action("Mail", ZAN_Value::dictionary({{"TriggerAutomatic", 0}}));
  if (withMainApp) startMainApp();
}

void Drive::begin() {
  writeTree();
  start(true);
  runFor(5);
  static_cast<void>(said());
  count();
}

void Drive::startMainApp() {
  machine.processes.startApplication(
      store().installPaths().installPathForCode(InstallPaths::mainAppBundle));
}

void Drive::hear(const std::string& object, ZAN_Value userInfo) {
  machine.notifications.receive(std::string(kSchedulerNotification), object, std::move(userInfo));
}

void Drive::tell(const std::string& object, ZAN_Value userInfo) {
  hear(object, std::move(userInfo));
  machine.runLoop.runFor(0);
}

void Drive::prefer(std::string_view key, const ZAN_Value& value) {
  ZAN_Value settings = store().settings().schedulerSettings();
  settings.setValue(key, value);
  EXPECT_TRUE(store().settings().saveSchedulerSettings(settings));
}

void Drive::startExecuteApp() {
  machine.processes.startApplication(
      store().installPaths().installPathForCode(InstallPaths::executeBundle));
}

void Drive::quitExecuteApp() {
  machine.processes.quitApplication(
      store().installPaths().installPathForCode(InstallPaths::executeBundle));
}

std::vector<std::string> Drive::said() {
  std::vector<std::string> lines;
  const auto& posts = machine.notifications.posts;
  for (; mHeard < posts.size(); ++mHeard) {
    const DistributedNotification& post = posts[mHeard];
    std::string line = post.name == kMainAppliNotification   ? "main "
                       : post.name == kExecuteNotification   ? "execute "
                       : post.name == kSchedulerNotification ? "scheduler "
                                                             : post.name + " ";
    line += post.object;
    if (!post.userInfo.isNull()) line += " " + text(post.userInfo);
    lines.push_back(line);
  }
  return lines;
}

std::string Drive::status() {
  ZAN_Value kept = ZAN_Value::dictionary();
  const ZAN_Value status = agentObject.answers->status();
  for (const auto& entry : status.entries()) {
    const std::string_view key = entry.key.stringView();
    if (key != "home" && key != "pid" && key != "started") kept.setValue(key, entry.value);
  }
  return text(kept, false);
}

std::string Drive::queue() { return text(agentObject.answers->queue(), false); }
std::string Drive::next() { return text(agentObject.answers->next(), false); }

std::map<std::string, std::string> Drive::values() {
  static constexpr const char* kIcons[] = {"normal",       "disabled", "diskChanged",
                                           "willDisable",  "running",  "pause",
                                           "surveyResult", "lacking",  "error"};
  static constexpr const char* kWindows[] = {
      "queue",           "nextActions",        "latestActions", "status",      "mountVolumes",
      "allDisks",        "volumesFolderError", "lowSpace",      "startupDisk", "errorSummary",
      "executionSurvey", "preferences",        "update",        "floatingIcon"};
  std::map<std::string, std::string> values;
  const auto take = [&](const std::string& name, const ZAN_Value& dictionary) {
    for (const auto& entry : dictionary.entries())
      values[name + entry.key.string()] = text(entry.value);
  };
  if (agentObject.answers == nullptr) {
    values["agent"] = "gone";
  } else {
    take("", agentObject.answers->status());
    values["queue"] = queue();
    values["next"] = next();
    values["reply"] = agent->supervisor().executeReply();
  }
  ZAN_Value stored = store().settings().schedulerSettings();
  // The clock moves it, and it goes with whatever is saved next.
  stored.removeKey(PreferenceKey::nextFreeSpaceCheck);
  take("stored ", stored);
  values["icon"] = !ui.statusItem  ? "none"
                   : ui.statusIcon ? kIcons[static_cast<int>(ui.statusIcon->first)]
                   : ui.countDown  ? "count-down " + std::to_string(ui.countDown->first)
                                   : "";
  values["title"] = ui.statusTitle;
  values["information"] = agent->userInterfaceSources().launchStep.statusInformation();
  values["message"] = ui.message ? ui.message->title : "";
  if (ui.message && !ui.message->text.empty()) values["message"] += ": " + ui.message->text;
  if (ui.message && !ui.message->closeButton) values["message"] += " (stays)";
  values["announce"] = ui.announce.value_or("");
  values["progress"] = std::to_string(ui.sizeCopied) + " " + std::to_string(ui.progress);
  values["controls"] = agent->queue().empty() ? "off" : "on";
  values["opacity"] = std::to_string(static_cast<int>(ui.floatingIconOpacity));
  values["fronts"] = std::to_string(ui.broughtToFront);
  values["floating menus"] = std::to_string(ui.floatingMenus);
  values["powered off"] = std::to_string(machine.power.shutDowns);
  values["windows"] = values["volumes"] = "";
  for (const Mount& mount : machine.volumes.mounts())
    values["volumes"] += " " + shortened(mount.target);
  for (const Window window : ui.windows)
    values["windows"] += std::string(" ") + kWindows[static_cast<int>(window)] +
                         (ui.quiet.contains(window) ? " (quietly)" : "");
  return values;
}

std::vector<std::string> Drive::lines() {
  std::vector<std::string> all;
  for (const auto& notice : ui.notifications) all.push_back("notice: " + notice.text);
  for (const auto& question : ui.questions) all.push_back("question: " + question.title);
  for (const auto& alert : ui.alerts) all.push_back("alert: " + alert.title);
  for (const auto& path : machine.processes.opened) all.push_back("opens " + shortened(path));
  for (const auto& path : machine.processes.relaunches)
    all.push_back("relaunches " + shortened(path));
  for (const auto& line : machine.systemLog.lines) all.push_back("system log: " + shortened(line));
  for (const auto& line : report()) all.push_back("report: " + line);
  for (const auto code : logCodes()) all.push_back("log " + std::to_string(code));
  return all;
}

std::string Drive::effect(const std::function<void()>& does, double seconds) {
  static_cast<void>(said());
  auto before = values();
  auto known = lines();
  does();
  machine.runLoop.runFor(seconds);
  std::string story;
  const auto add = [&story](const std::string& line) {
    story += (story.empty() ? "" : "; ") + line;
  };
  for (const std::string& line : said()) add(line);
  for (const auto& [name, value] : values()) {
    const auto old = before.find(name);
    if (old == before.end() || old->second != value) add(name + ": " + value);
    before.erase(name);
  }
  if (agentObject.answers != nullptr) {
    for (const auto& gone : before) add(gone.first + " no more");
  }
  for (const std::string& line : lines()) {
    const auto old = std::ranges::find(known, line);
    if (old == known.end()) {
      add(line);
    } else {
      known.erase(old);
    }
  }
  return story;
}

void expectEffects(std::initializer_list<Effect> effects,
                   const std::function<void(Drive&)>& begun) {
  for (const Effect& row : effects) {
    SCOPED_TRACE(row.name);
    Drive day(true);
    if (row.before) row.before(day);
    day.begin();
    if (begun) begun(day);
    const std::string effect = day.effect([&] { row.does(day); }, row.seconds);
    EXPECT_EQ(effect, row.effect);
  }
}

double Drive::launchedAfter(std::size_t n) const {
  const auto& starts = machine.processes.starts;
  return n < starts.size() ? starts[n]->date - mCountsFrom : -1;
}

std::string Drive::shortened(const std::string& path) const {
  const std::string& home = machine.folder.path();
  const auto at = path.find(home);
  return at == std::string::npos ? path : path.substr(0, at) + "~" + path.substr(at + home.size());
}

std::string Drive::text(const ZAN_Value& value, bool zerosToo) const {
  if (value.isNull()) return "-";
  if (const auto date = value.asDate()) return civil(*date).substr(11);
  if (value.isNumber()) return ZAN_StringUtils::format("%@", {value.doubleValue()});
  if (value.isString()) return shortened(value.string());
  std::string inside;
  const auto add = [&inside](const std::string& one) {
    inside += (inside.empty() ? "" : " ") + one;
  };
  if (value.isArray()) {
    for (const ZAN_Value& element : value.elements()) add(text(element, zerosToo));
    return "[" + inside + "]";
  }
  if (!value.isDictionary()) return "(" + std::to_string(value.bytes().size()) + " bytes)";
  for (const auto& entry : value.entries()) {
    if (zerosToo || !entry.value.isNumber() || entry.value.doubleValue() != 0)
      add(entry.key.string() + "=" + text(entry.value, zerosToo));
  }
  return "{" + inside + "}";
}

}  // namespace corvana
