#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;

/// One action waiting in the queue, or running at its head.
struct QueueRecord {
  std::int64_t ref = 0;
  ReferenceTime date = 0;  ///< launched once now is at or past it
  std::int64_t estimateSize =
      0;  ///< not 0: the execute application first estimates the size of the work

  /// When it was due by its schedule, for one that comes late; nothing otherwise.
  std::optional<ReferenceTime> due = std::nullopt;

  /// New tries after a crash or an interruption so far; they belong to the action, wherever its
  /// record stands.
  int retry = 0;
  /// The last schedule date that its action got for this occasion; nothing in records of others.
  std::optional<ReferenceTime> scheduleDate = std::nullopt;
  /// When its execution began; nothing while it waits.
  std::optional<ReferenceTime> begun = std::nullopt;

  /// What it is instead of a run (TaskRequest), and the name of the file that says what is wanted;
  /// empty for a run. For programs that do not know them it is an estimate.
  std::string task = {};
  std::string request = {};

  bool isTask() const { return !request.empty(); }

  /// The date from which its lateness counts.
  ReferenceTime plannedDate() const { return due.value_or(date); }

  /// {"Ref", "Date", "EstimateSize"}, as it is saved and shown to others; "DueDate" too for one
  /// that comes late, "Task" and "Request" for a task.
  ZAN_Value toValue() const;
  /// The same with all that is known: "Retry", "ScheduleDate" and "Begun" where there is any.
  ZAN_Value toOccasion() const;
  /// Nothing for a value that is no dictionary or has no "Ref"; without "Date" it is due at once.
  static std::optional<QueueRecord> fromValue(const ZAN_Value& value);

  bool operator==(const QueueRecord&) const = default;
};

/// Every occasion of a stored queue, the head first: what the agent has stored, or where it has
/// stored none what its preferences, the array `fallback`, hold. Elements that are no records are
/// left out.
std::vector<QueueRecord> storedOccasions(ActionStore& store, const ZAN_Value& fallback);

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
