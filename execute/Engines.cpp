#include "execute/Engines.h"

#include <algorithm>

#include "actions/RecordKeys.h"

namespace corvana {

Result<std::unique_ptr<Engine>> makeEngine(EngineOrder order, EngineHost host) {
  const auto kinds = engineKinds();
  const std::string name =
      order.from.empty() ? order.settings.string(EngineKey::name) : order.engine;
  auto kind = name.empty() ? kinds.begin() : std::ranges::find(kinds, name, &EngineKind::name);
  if (!order.from.empty() && name.empty()) {
    kind = std::ranges::find_if(kinds,
                                [&](const EngineKind& other) { return other.isPlace(order.from); });
    if (kind == kinds.end()) kind = kinds.begin();
  }
  if (kind == kinds.end()) {
    return Error{ErrorKind::refused,
                 std::string(EngineKey::name) + ": there is no engine \"" + name + "\" here"};
  }
  return kind->make(std::move(order), std::move(host));
}

}  // namespace corvana
