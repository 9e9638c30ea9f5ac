#pragma once

#include <memory>
#include <span>

#include "execute/engine/Engine.h"

namespace corvana {

/// All kinds of engines: each folder below execute/ with one tells of it (`corvana_engine` in its
/// CMakeLists.txt). The first is that of actions that name none.
std::span<const EngineKind> engineKinds();

/// The engine that the order's settings name, or whose place its `from` is. `refused` for a name
/// that no engine has.
Result<std::unique_ptr<Engine>> makeEngine(EngineOrder order, EngineHost host);

}  // namespace corvana
