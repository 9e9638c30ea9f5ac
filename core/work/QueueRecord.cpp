#include "core/work/QueueRecord.h"

namespace corvana {

ZAN_Value QueueRecord::toValue() const {
  return ZAN_Value::dictionary(
      {{"Ref", ref}, {"Date", ZAN_Value::date(date)}, {"EstimateSize", estimateSize}});
}

std::optional<QueueRecord> QueueRecord::fromValue(const ZAN_Value& value) {
  if (!value.isDictionary() || !value.contains("Ref")) return std::nullopt;
  return QueueRecord{.ref = value.integer("Ref"),
                     .date = value["Date"].asDate().value_or(0),
                     .estimateSize = value.integer("EstimateSize")};
}

}  // namespace corvana
