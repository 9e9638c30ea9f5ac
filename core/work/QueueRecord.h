#pragma once

#include <cstdint>
#include <optional>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// One action waiting in the queue, or running at its head.
struct QueueRecord {
  std::int64_t ref = 0;
  ReferenceTime date = 0;  ///< launched once now is at or past it
  std::int64_t estimateSize =
      0;  ///< not 0: the execute application first estimates the size of the work

  /// When it was due by its schedule, for one that comes late; nothing otherwise.
  std::optional<ReferenceTime> due = std::nullopt;

  /// The date from which its lateness counts.
  ReferenceTime plannedDate() const { return due.value_or(date); }

  /// {"Ref", "Date", "EstimateSize"}, as it is saved and shown to others; "DueDate" too for one
  /// that comes late.
  ZAN_Value toValue() const;
  /// Nothing for a value that is no dictionary or has no "Ref"; without "Date" it is due at once.
  static std::optional<QueueRecord> fromValue(const ZAN_Value& value);

  bool operator==(const QueueRecord&) const = default;
};

}  // namespace corvana
