#include "actions/ExecutionCounters.h"

#include "actions/ActionStore.h"

namespace corvana {

void ExecutionCounters::incrementCounter(std::string_view counter, std::int64_t reference) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kExecutions);
  ZAN_Value all = mStore.files().readObjectFromFile(DataFolder::kExecutions);
  if (!all.isDictionary()) all = ZAN_Value::dictionary();
  const std::string key = std::to_string(reference);
  ZAN_Value counts = all[key].isDictionary() ? all[key] : ZAN_Value::dictionary();
  counts.setValue(counter, static_cast<int>(counts.integer(counter) + 1));
  all.setValue(key, counts);
  // Another count than before the power failed does no harm.
  (void)mStore.files().writeObjectToFile(all, DataFolder::kExecutions, DataFiles::Saving::soon);
}

std::int64_t ExecutionCounters::counter(std::string_view counter, std::int64_t reference) {
  return mStore.files()
      .readObjectFromFile(DataFolder::kExecutions)[std::to_string(reference)]
      .integer(counter);
}

std::int64_t ExecutionCounters::total(std::string_view counter) {
  std::int64_t sum = 0;
  const ZAN_Value all = mStore.files().readObjectFromFile(DataFolder::kExecutions);
  for (const ZAN_Value::Entry& entry : all.entries()) sum += entry.value.integer(counter);
  return sum;
}

}  // namespace corvana
