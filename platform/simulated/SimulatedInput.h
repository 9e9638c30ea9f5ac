#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "platform/Input.h"
#include "platform/RunLoop.h"

namespace corvana {

/// A keyboard, a pointer and a screen of 1440 × 900 with a panel of 24 at its top; all set freely.
class SimulatedInput final : public Input {
 public:
  static constexpr int kCapsLock = 58;

  explicit SimulatedInput(RunLoop& runLoop) : mRunLoop(runLoop) {}

  KeyMap keyMap() override { return keys; }
  void clearCapsLock(KeyMap& map) const override { set(map, kCapsLock, false); }
  bool optionKeyDown() override { return optionKey; }
  bool mouseButtonDown() override { return mouseButton; }
  std::optional<Point> pointer() override { return position; }
  Rect mainScreen() override { return screen; }
  Rect visibleFrame() override { return visible; }
  std::optional<double> idleSeconds() override { return idle; }
  bool observe(std::function<void()> used) override {
    mUsed = std::move(used);
    return tellsOfUse;
  }

  /// The user does something after a rest, which the observer hears from the loop.
  void use() {
    if (!tellsOfUse) return;
    mRunLoop.performOnMain([this] {
      const auto used = mUsed;
      if (used) used();
    });
  }
  void press(int key) {
    set(keys, key, true);
    use();
  }
  void release(int key) { set(keys, key, false); }

  KeyMap keys{};
  bool optionKey = false;
  bool mouseButton = false;
  std::optional<Point> position = Point{400, 300};
  Rect screen{0, 0, 1440, 900};
  Rect visible{0, 0, 1440, 876};
  std::optional<double> idle;
  bool tellsOfUse = false;  ///< whether the system does

 private:
  static void set(KeyMap& map, int key, bool down) {
    auto& byte = map.at(static_cast<std::size_t>(key) / 8);
    const auto bit = static_cast<std::uint8_t>(1U << (static_cast<unsigned>(key) % 8));
    byte = static_cast<std::uint8_t>(down ? byte | bit : byte & ~bit);
  }

  RunLoop& mRunLoop;
  std::function<void()> mUsed;
};

}  // namespace corvana
