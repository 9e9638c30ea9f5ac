#pragma once

#include "platform/Input.h"

namespace corvana {

/// A keyboard, a pointer and a screen of 1440 × 900 with a panel of 24 at its top; all set freely.
class SimulatedInput final : public Input {
 public:
  static constexpr int kCapsLock = 58;

  KeyMap keyMap() override { return keys; }
  void clearCapsLock(KeyMap& map) const override { set(map, kCapsLock, false); }
  bool optionKeyDown() override { return optionKey; }
  bool mouseButtonDown() override { return mouseButton; }
  std::optional<Point> pointer() override { return position; }
  Rect mainScreen() override { return screen; }
  Rect visibleFrame() override { return visible; }
  std::optional<double> idleSeconds() override { return idle; }

  void press(int key) { set(keys, key, true); }
  void release(int key) { set(keys, key, false); }

  KeyMap keys{};
  bool optionKey = false;
  bool mouseButton = false;
  std::optional<Point> position = Point{400, 300};
  Rect screen{0, 0, 1440, 900};
  Rect visible{0, 0, 1440, 876};
  std::optional<double> idle;

 private:
  static void set(KeyMap& map, int key, bool down) {
    auto& byte = map.at(static_cast<std::size_t>(key) / 8);
    const auto bit = static_cast<std::uint8_t>(1U << (static_cast<unsigned>(key) % 8));
    byte = static_cast<std::uint8_t>(down ? byte | bit : byte & ~bit);
  }
};

}  // namespace corvana
