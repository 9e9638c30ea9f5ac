#include "core/work/QueueRecord.h"

namespace corvana {

ZAN_Value QueueRecord::toValue() const {
  ZAN_Value value = ZAN_Value::dictionary(
      {{"Ref", ref}, {"Date", ZAN_Value::date(date)}, {"EstimateSize", estimateSize}});
  if (due) value.setValue("DueDate", ZAN_Value::date(*due));
  return value;
}

std::optional<QueueRecord> QueueRecord::fromValue(const ZAN_Value& value) {
  if (!value.isDictionary() || !value.contains("Ref")) return std::nullopt;
  return QueueRecord{.ref = value.integer("Ref"),
                     .date = value["Date"].asDate().value_or(0),
                     .estimateSize = value.integer("EstimateSize"),
                     .due = value["DueDate"].asDate()};
}

}  // namespace corvana
