#include "core/work/NextAction.h"

#include <algorithm>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_CaseFold.h"

namespace corvana {

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

void sortActions(std::vector<NextAction>& actions) {
  // Names are folded once and only where dates leave them to decide.
  struct Key {
    std::size_t index;
    ReferenceTime date;
    bool undated;
    bool named;
    std::string name;
  };
  std::vector<Key> keys;
  keys.reserve(actions.size());
  for (std::size_t i = 0; i < actions.size(); ++i) {
    const NextAction& action = actions[i];
    keys.push_back({i, action.hasDate ? action.date : 0, !action.hasDate, false, {}});
  }
  const auto byDate = [](const Key& a, const Key& b) {
    if (a.undated != b.undated) return b.undated;
    return a.date < b.date;
  };
  std::ranges::stable_sort(keys, byDate);

  for (auto run = keys.begin(); run != keys.end();) {
    const auto end =
        std::find_if(run, keys.end(), [&](const Key& key) { return byDate(*run, key); });
    if (end - run > 1) {
      for (auto key = run; key != end; ++key) {
        const ZAN_Value& title = actions[key->index].title;
        key->named = !title.isNull();
        key->name = foldedCase(title.stringView());
      }
      std::stable_sort(run, end, [](const Key& a, const Key& b) {
        if (a.named != b.named) return b.named;
        return a.name < b.name;
      });
    }
    run = end;
  }

  std::vector<NextAction> sorted;
  sorted.reserve(actions.size());
  for (const Key& key : keys) sorted.push_back(std::move(actions[key.index]));
  actions = std::move(sorted);
}

}  // namespace corvana
