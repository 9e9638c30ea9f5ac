// What the next run of an action would do.

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr std::size_t kShown = 20;
constexpr std::size_t kMost = 50'000;
/// A look at a large tree on a slow disk.
constexpr double kPatience = 3600;

std::string itemsInWords(const ZAN_Value& part) {
  const ZAN_StringUtils strings("C");
  const std::uint64_t files = part["files"].unsignedValue();
  return std::to_string(files) + (files == 1 ? " file, " : " files, ") +
         strings.getShortSizeBytes(part["bytes"].unsignedValue());
}

constexpr std::string_view kLines =
    "{title} [{reference}]{possible!: a run would do nothing\n  {reason}\n}"
    "{possible?\nwould copy     {copy:part}\n{copy.items*  + {}\n}"
    "would replace  {replace:part}\n{replace.items*  > {}\n}"
    "would change   {change:part} (dates, rights)\n"
    "would delete   {delete:part}\n{delete.items*  - {}\n}"
    "{toConfirm?It would ask before it deletes: {reason}\n}"
    "{missing?Not possible:\n{missing*  {}\n}}"
    "{losses?The disk of the copies does not keep: {losses:listed}\n}}";

}  // namespace

Answer planCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const bool areAllWanted = arguments.flag("--all");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  const auto tool = home.tool("plan");
  if (!tool) return tool.error();
  const auto told =
      runToolBlocking({"/usr/bin/env", "HOME=" + home.machine().homeFolder(), *tool,
                       std::to_string(*reference), std::to_string(areAllWanted ? kMost : kShown)},
                      kPatience);
  if (!told) return told.error();
  const auto plan = ZAN_Json::valueWithJson(*told);
  if (!plan) return plan.error();
  if (!plan->contains("title")) return Error{ErrorKind::absent, plan->string("reason")};
  TextForm form(home.calendar());
  form.with("part", itemsInWords).with("listed", [](const ZAN_Value& list) {
    std::string text;
    for (const ZAN_Value& one : list.elements()) text += (text.empty() ? "" : ", ") + one.string();
    return text;
  });
  ZAN_Value shown = *plan;
  for (const char* part : {"copy", "replace", "delete"}) {
    ZAN_Value paths = ZAN_Value::array();
    const ZAN_Value& items = (*plan)[part]["items"];
    for (const ZAN_Value& item : items.elements()) paths.append(item.string("path"));
    if ((*plan)[part]["files"].unsignedValue() > items.size())
      paths.append("... (--all lists " + std::to_string(kMost) + ")");
    ZAN_Value changed = shown[part];
    changed.setValue("items", std::move(paths));
    shown.setValue(part, std::move(changed));
  }
  Answer answer(*plan, form.fill(kLines, shown));
  if (!(*plan)["possible"].boolValue()) answer.code = kCouldNot;
  return answer;
}

}  // namespace corvana
