#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// One line of the list of next actions: an action with its next date or without one, or a group.
struct NextAction {
  bool isGroup = false;
  bool hasDate = false;
  ReferenceTime date = 0;  ///< only with hasDate
  std::int64_t ref = 0;    ///< of the action, or of the group
  std::int64_t actionType = 0;
  ZAN_Value title;         ///< text, or null when the record has none
  ZAN_Value shortcutText;  ///< text, or null when the record has none

  bool operator==(const NextAction&) const = default;

  std::string name() const { return ZAN_StringUtils::oneLine(title.stringView()); }
  std::string shortcut() const { return ZAN_StringUtils::oneLine(shortcutText.stringView()); }
  /// {"Date" (only with a date), "Ref", "ActionType", "Name", "Shortcut"}; a group has "Group" (its
  /// reference), "Name" and "Shortcut".
  ZAN_Value toValue() const;
};

/// Dated entries first, by date; then by name without regard to case, an entry without a name
/// first. Equal entries keep their order.
void sortActions(std::vector<NextAction>& actions);

}  // namespace corvana
