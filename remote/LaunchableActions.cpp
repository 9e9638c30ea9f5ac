#include "remote/LaunchableActions.h"

#include <algorithm>
#include <charconv>
#include <numeric>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ProgrammedAction.h"

namespace corvana {

namespace {

constexpr std::size_t kMostBytesOfText = 255;
constexpr std::size_t kMostBytes = 1300;
constexpr std::string_view kKey = "Ref-";

/// Cuts the part behind the last tab off and reads it.
std::optional<std::int64_t> lastNumber(std::string_view& text) {
  const std::size_t tab = text.rfind('\t');
  if (tab == std::string_view::npos) return std::nullopt;
  const std::string_view part = text.substr(tab + 1);
  text = text.substr(0, tab);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number);
  if (error != std::errc() || end != part.data() + part.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string LaunchableAction::text() const {
  const std::string key = ZAN_StringUtils::format("Ref-%d=", {ref});
  const std::string rest = ZAN_StringUtils::format("\t%d\t%d\t%d", {mode, ref, lastScheduleDate});
  std::string whole = withReplacedBytes(title);
  std::ranges::replace_if(
      whole, [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return key + std::string(beginningOfBytes(whole, kMostBytesOfText - key.size() - rest.size())) +
         rest;
}

std::optional<LaunchableAction> LaunchableAction::parse(std::string_view text) {
  const std::size_t sign = text.find('=');
  if (!text.starts_with(kKey) || sign == std::string_view::npos) return std::nullopt;
  text.remove_prefix(sign + 1);
  const auto last = lastNumber(text);
  const auto ref = lastNumber(text);
  const auto mode = lastNumber(text);
  if (!last || !ref || !mode || *ref == 0) return std::nullopt;
  return LaunchableAction{*ref, withReplacedBytes(text), *mode, *last};
}

std::vector<LaunchableAction> launchableActions(ProgrammedAction& root) {
  ProgrammedAction::Nodes nodes;
  root.getAllActionsInOneList(nodes, false);
  std::vector<LaunchableAction> actions;
  for (const ProgrammedAction* node : nodes) {
    const ZAN_Value& settings = node->getSettings();
    if (settings.integer("TriggerPreventRemoteLaunch") != 0) continue;
    actions.push_back(
        {node->getReference(), node->getTitle(), node->actionType(),
         ZAN_Value(settings["LastScheduleDate"].asDate().value_or(0.0)).integerValue()});
  }
  return actions;
}

LaunchableTexts::LaunchableTexts(const std::vector<LaunchableAction>& actions,
                                 std::vector<std::string> before)
    : texts(std::move(before)) {
  std::vector<std::string> all;
  all.reserve(actions.size());
  std::vector<std::size_t> order(actions.size());
  std::iota(order.begin(), order.end(), 0U);
  for (const LaunchableAction& action : actions) all.push_back(action.text());
  std::ranges::stable_sort(order, std::ranges::greater{},
                           [&](std::size_t i) { return actions[i].lastScheduleDate; });
  std::size_t bytes = 0;
  for (const std::string& text : texts) bytes += 1 + text.size();
  std::vector<std::size_t> taken;
  for (const std::size_t i : order) {
    bytes += 1 + all[i].size();
    if (bytes > kMostBytes) break;
    taken.push_back(i);
  }
  std::ranges::sort(taken);
  for (const std::size_t i : taken) texts.push_back(std::move(all[i]));
  leftOut = actions.size() - taken.size();
}

}  // namespace corvana
