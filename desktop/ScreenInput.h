#pragma once

#include "platform/Input.h"

namespace corvana {

/// The screens of a desktop that lets nobody see keyboard and pointer.
class ScreenInput : public Input {
 public:
  KeyMap keyMap() override { return {}; }
  void clearCapsLock(KeyMap& map) const override;
  bool optionKeyDown() override { return false; }
  bool mouseButtonDown() override { return false; }
  std::optional<Point> pointer() override { return std::nullopt; }
  Rect mainScreen() override;
  Rect visibleFrame() override;
  std::optional<double> idleSeconds() override { return std::nullopt; }
  bool observe(std::function<void()> /*used*/) override { return false; }
};

}  // namespace corvana
