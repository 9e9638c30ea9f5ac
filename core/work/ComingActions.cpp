#include "core/work/ComingActions.h"

#include <algorithm>
#include <compare>
#include <limits>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
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

ZAN_Value NextAction::toValue() const {
  ZAN_Value entry = ZAN_Value::dictionary();
  if (hasDate) entry.setValue("Date", ZAN_Value::date(date));
  if (isGroup) {
    entry.setValue("Group", ref);
  } else {
    entry.setValue("Ref", ref);
    entry.setValue("ActionType", actionType);
  }
  entry.setValue("Name", title);
  entry.setValue("Shortcut", shortcutText);
  return entry;
}

namespace {

struct Key {
  ReferenceTime date;  ///< infinite without a date
  std::size_t index;
};

struct Name {
  bool given;
  std::string folded;
  std::size_t index;
  auto operator<=>(const Name&) const = default;
};

}  // namespace

void sortActions(std::vector<NextAction>& actions) {
  std::vector<Key> keys;
  keys.reserve(actions.size());
  for (std::size_t i = 0; i < actions.size(); ++i)
    keys.push_back(
        {actions[i].hasDate ? actions[i].date : std::numeric_limits<double>::infinity(), i});
  std::ranges::stable_sort(keys, {}, &Key::date);

  // Names are folded only where dates leave them to decide.
  std::vector<Name> names;
  for (std::size_t first = 0; first < keys.size();) {
    std::size_t end = first + 1;
    while (end < keys.size() && keys[end].date == keys[first].date) ++end;
    if (end - first > 1) {
      names.clear();
      for (std::size_t i = first; i < end; ++i) {
        const ZAN_Value& title = actions[keys[i].index].title;
        names.push_back({!title.isNull(), foldedCase(title.stringView()), keys[i].index});
      }
      std::ranges::sort(names);
      for (std::size_t i = first; i < end; ++i) keys[i].index = names[i - first].index;
    }
    first = end;
  }

  std::vector<NextAction> sorted;
  sorted.reserve(actions.size());
  for (const Key& key : keys) sorted.push_back(std::move(actions[key.index]));
  actions = std::move(sorted);
}

}  // namespace corvana
