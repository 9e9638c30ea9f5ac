#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvana {

class ZAN_StringTable;

/// Where the user works, with the numbers of "TriggerContextPopup" and
/// "SchedulerPrefCurrentContext". `none` of an action: it runs anywhere; of the user: everything
/// runs. Any other number is carried through, and named as `nomad`.
enum class ActionContext : std::int64_t { none = 0, office = 1, home = 2, nomad = 3 };

/// Whether an action with a context of its own has to wait while the user is in another one.
constexpr bool isOtherContext(ActionContext own, ActionContext current) {
  return own != ActionContext::none && current != ActionContext::none && own != current;
}

/// What the user reads: "Office".
const std::string& contextName(ActionContext context, const ZAN_StringTable& texts);
/// The names of all, in the order of their numbers.
std::vector<std::string> contextNames(const ZAN_StringTable& texts);

}  // namespace corvana
