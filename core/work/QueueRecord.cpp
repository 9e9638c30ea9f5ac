#include "core/work/QueueRecord.h"

#include "actions/ActionStore.h"
#include "actions/TaskRequest.h"

namespace corvana {

ZAN_Value QueueRecord::toValue() const {
  ZAN_Value value = ZAN_Value::dictionary(
      {{"Ref", ref}, {"Date", ZAN_Value::date(date)}, {"EstimateSize", estimateSize}});
  if (isTask()) {
    value.setValue(TaskRequest::kTaskKey, task);
    value.setValue(TaskRequest::kFileKey, request);
  }
  if (due) value.setValue("DueDate", ZAN_Value::date(*due));
  return value;
}

ZAN_Value QueueRecord::toOccasion() const {
  ZAN_Value value = toValue();
  if (retry != 0) value.setValue("Retry", retry);
  if (scheduleDate) value.setValue("ScheduleDate", ZAN_Value::date(*scheduleDate));
  if (begun) value.setValue("Begun", ZAN_Value::date(*begun));
  return value;
}

std::optional<QueueRecord> QueueRecord::fromValue(const ZAN_Value& value) {
  if (!value.isDictionary() || !value.contains("Ref")) return std::nullopt;
  const bool isTask = TaskRequest::isTask(value.string(TaskRequest::kTaskKey)) &&
                      TaskRequest::isName(value.string(TaskRequest::kFileKey));
  return QueueRecord{.ref = value.integer("Ref"),
                     .date = value["Date"].asDate().value_or(0),
                     .estimateSize = value.integer("EstimateSize"),
                     .due = value["DueDate"].asDate(),
                     .retry = static_cast<int>(value.integer("Retry")),
                     .scheduleDate = value["ScheduleDate"].asDate(),
                     .begun = value["Begun"].asDate(),
                     .task = isTask ? value.string(TaskRequest::kTaskKey) : std::string(),
                     .request = isTask ? value.string(TaskRequest::kFileKey) : std::string()};
}

std::vector<QueueRecord> storedOccasions(ActionStore& store, const ZAN_Value& fallback) {
  const DataFiles::List occasions = store.files().readListAtPath(
      store.folder().dataFolderPathWithFileName(DataFolder::kOccasions), {});
  // Nothing in an empty file, which is what a cut may leave, is no queue without records.
  const bool isKnown = occasions.identity && occasions.identity->size > 0 && occasions.readable;
  const ZAN_Value& list = isKnown ? occasions.elements : fallback;
  std::vector<QueueRecord> records;
  for (const ZAN_Value& element : list.elements())
    if (const auto record = QueueRecord::fromValue(element)) records.push_back(*record);
  return records;
}

}  // namespace corvana
