#include "core/work/NextAction.h"

#include <algorithm>
#include <compare>
#include <limits>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"

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
