#include <array>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "command/RunningAgent.h"

// The commands for data files: dump shows one as JSON, pack writes one from JSON.

// The command that shows and brings back earlier versions of what is stored.

namespace corvana {

namespace {

/// Told apart by content alone.
Result<ZAN_Value> valueOf(std::string_view contents) {
  const auto bytes = std::as_bytes(std::span(contents.data(), contents.size()));
  if (ZAN_Unarchiver::isArchive(bytes)) return ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  if (ZAN_PropertyList::isPropertyList(bytes)) {
    auto list = ZAN_PropertyList::propertyListWithData(bytes);
    if (!list || !ZAN_KeyedUnarchiver::isKeyedArchive(*list)) return list;
    return ZAN_KeyedUnarchiver::unarchiveObject(*list);
  }
  if (contents.empty()) return Error{ErrorKind::damaged, "the file is empty"};
  return Error{ErrorKind::damaged, "neither an archive nor a property list"};
}

Error about(const std::string& path, const Error& error) {
  return {error.kind, path + ": " + error.text};
}

}  // namespace

Answer dumpCommand(Arguments& arguments, const Console&) {
  ZAN_Json::Options options;
  options.maskPasswords = arguments.flag("--mask");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const std::string& path = words->front();
  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return file.error();
  const auto value = valueOf(file->bytes);
  if (!value) return about(path, value.error());
  auto json = ZAN_Json::jsonWithValue(*value, options);
  if (!json) return about(path, json.error());
  return Answer::ofText(*std::move(json) + '\n');
}

Answer packCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 2);
  if (!words) return wrongWords(words.error());
  const std::string& source = words->front();
  const std::string& target = words->back();
  std::string text;
  if (source == "-") {
    text = *readText(source, console);
  } else {
    auto file = ZAN_FilesUtils::readFile(source);
    if (!file) return file.error();
    text = std::move(file->bytes);
  }
  const auto value = ZAN_Json::valueWithJson(text);
  if (!value) return about(source, value.error());
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(*value);
  // A file that nobody could read again must not take the place of a good one.
  if (const auto check = ZAN_Unarchiver::unarchiveObjectWithData(bytes); !check)
    return about(source, {check.error().kind, "cannot be archived: " + check.error().text});
  if (const auto written = ZAN_FileWriter({}).write(target, bytes, ZAN_FileWriter::Options());
      !written)
    return written.error();
  return {};
}

namespace {

constexpr double kDamageIsNews = 30 * 86400.0;

struct Stored {
  std::string_view word;
  std::string_view file;
};
constexpr std::array kStored{Stored{"actions", DataFolder::kActions},
                             Stored{"settings", DataFolder::kSettings},
                             Stored{"scheduler-settings", DataFolder::kSchedulerSettings}};

ZAN_Value versionsOf(CommandHome& home, const Stored& stored) {
  ZAN_Value versions = ZAN_Value::array();
  for (const auto& one : home.store().files().generations().of(stored.file))
    versions.append(ZAN_Value::dictionary({{"date", ZAN_Value::date(one.date)},
                                           {"size", static_cast<std::int64_t>(one.size)},
                                           {"path", one.path}}));
  return versions;
}

Answer listed(CommandHome& home) {
  ZAN_Value all = ZAN_Value::array();
  for (const Stored& stored : kStored) {
    ZAN_Value damaged = ZAN_Value::array();
    for (const auto& one : home.store().files().generations().damaged(stored.file))
      damaged.append(one.path);
    all.append(ZAN_Value::dictionary({{"name", stored.word},
                                      {"file", stored.file},
                                      {"damaged", damaged},
                                      {"versions", versionsOf(home, stored)}}));
  }
  TextForm form(home.calendar());
  form.with("size", [](const ZAN_Value& size) { return std::to_string(size.integerValue()); });
  return {all, form.fill("{*{name} ({file})\n{damaged*  damaged, kept as {}\n}"
                         "{versions!  no earlier version\n}"
                         "{versions*  {#}. {date:date}, {size:size} bytes\n}}"
                         "corvana9 recover NAME brings the newest back, --version N another.\n",
                         all)};
}

}  // namespace

std::vector<std::string> storageTroubles(CommandHome& home) {
  std::vector<std::string> texts;
  if (!home.isThere()) return texts;
  ActionStore& store = home.store();
  for (const std::string_view name : {DataFolder::kActions, DataFolder::kHistory})
    (void)store.files().readListFromFile(name);
  (void)store.settings().mainAppSettings();
  (void)store.settings().schedulerSettings();
  for (const auto& [path, trouble] : store.files().troubles()) {
    const std::string_view name = ZAN_FilesUtils::lastPathComponent(path);
    texts.push_back(trouble.reason + (Generations::areKeptOf(name) &&
                                              trouble.kind == DataFiles::Trouble::Kind::damaged
                                          ? "; corvana9 recover brings an earlier version back"
                                          : ""));
  }
  for (const std::string_view name : {DataFolder::kActions, DataFolder::kSettings,
                                      DataFolder::kSchedulerSettings, DataFolder::kHistory}) {
    for (const auto& one : store.files().generations().damaged(name)) {
      if (home.now() - one.date > kDamageIsNews) continue;
      texts.push_back(std::string(name) + ": was damaged and is lost to the programs, kept as " +
                      one.path +
                      (Generations::areKeptOf(name)
                           ? "; corvana9 recover brings an earlier version back, --forget is "
                             "content without"
                           : "; corvana9 recover --forget is content without"));
    }
  }
  return texts;
}

Answer withStorageTroubles(Answer answer, CommandHome& home) {
  std::string reason;
  for (const std::string& text : storageTroubles(home))
    reason += (reason.empty() ? "" : "\n") + text;
  if (reason.empty() || answer.code != kDone) return answer;
  answer.reason = reason;
  answer.code = kCouldNot;
  return answer;
}

Answer recoverCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto number = arguments.number("--version", 1, 1000);
  const bool forget = arguments.flag("--forget");
  const auto words = arguments.words(0, 1);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  if (!home.isThere()) return Error{ErrorKind::absent, "nothing is stored in this home"};
  if (forget) {
    for (const std::string_view name : {DataFolder::kActions, DataFolder::kSettings,
                                        DataFolder::kSchedulerSettings, DataFolder::kHistory})
      home.store().files().generations().storeDamaged(name);
    return Answer::ofText("What was damaged lies with the earlier versions now.\n");
  }
  if (words->empty()) {
    if (number) return wrongWords({ErrorKind::refused, "--version wants the name of a file"});
    return listed(home);
  }
  const auto stored = std::ranges::find(kStored, words->front(), &Stored::word);
  if (stored == kStored.end())
    return wrongWords({ErrorKind::refused, words->front() + ": actions, settings or "
                                                            "scheduler-settings"});
  const auto versions = home.store().files().generations().of(stored->file);
  const auto index = static_cast<std::size_t>(number.value_or(1) - 1);
  if (index >= versions.size())
    return Error{ErrorKind::absent,
                 std::string(stored->file) + ": there " +
                     (versions.empty()
                          ? "is no earlier version"
                          : "are only " + std::to_string(versions.size()) + " earlier versions")};
  const auto& version = versions[index];
  if (const Outcome back = home.store().files().bringBack(stored->file, version.path); !back)
    return back.error();
  tellAgentThatActionListChanged();
  RunningAgent agent(home);
  if (agent.answers()) (void)agent.client().post({kAgentName, "PreferencesDidChange", {}});
  return {ZAN_Value::dictionary({{"file", stored->file}, {"date", ZAN_Value::date(version.date)}}),
          std::string(stored->file) + ": the version of " + home.dateText(version.date) +
              " is back. What it replaced is the newest version now.\n"};
}

}  // namespace corvana
