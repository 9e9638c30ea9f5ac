#pragma once

#include "platform/Input.h"

namespace corvana {

/// A session without keyboard, pointer and screen: nobody can be seen to be away, so the user is
/// there.
class NoInput final : public Input {
 public:
  KeyMap keyMap() override { return {}; }
  void clearCapsLock(KeyMap& /*map*/) const override {}
  bool optionKeyDown() override { return false; }
  bool mouseButtonDown() override { return false; }
  std::optional<Point> pointer() override { return std::nullopt; }
  Rect mainScreen() override { return {}; }
  Rect visibleFrame() override { return {}; }
  std::optional<double> idleSeconds() override { return std::nullopt; }
  /// There is nothing to be told.
  bool observe(std::function<void()> /*used*/) override { return true; }
};

}  // namespace corvana
