#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>

namespace corvana {

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

/// Origin at the lower left, y upwards.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const Rect&) const = default;
};

/// What lies above belongs to the menu bar: the part of the screen above its available area, or,
/// where no panel is at the top, the outermost two rows.
inline double menuBarBottom(const Rect& screen, const Rect& visibleFrame) {
  return std::min(visibleFrame.y + visibleFrame.height, screen.y + screen.height - 3);
}

/// One bit a key, by the first 128 key codes; bit k of byte k / 8.
using KeyMap = std::array<std::uint8_t, 16>;

/// Keyboard, pointer and screens. Thread: main.
class Input {
 public:
  virtual ~Input() = default;
  /// All zero where the keyboard's state cannot be seen.
  virtual KeyMap keyMap() = 0;
  /// The Caps Lock key in a key map; it never counts as activity.
  virtual void clearCapsLock(KeyMap& map) const = 0;
  virtual bool optionKeyDown() = 0;
  virtual bool mouseButtonDown() = 0;
  /// Nothing where the pointer cannot be seen.
  virtual std::optional<Point> pointer() = 0;
  /// The main screen, and the part of it that no panel covers; empty without a screen.
  virtual Rect mainScreen() = 0;
  virtual Rect visibleFrame() = 0;
  /// Seconds since the user last did anything; nothing when unknown, and the user then counts as
  /// active.
  virtual std::optional<double> idleSeconds() = 0;

  /// After so many seconds without any use the user counts as resting.
  static constexpr double kRest = 1.0;
  /// From now on `used` is called from the loop when the user does anything after a rest, so that
  /// nobody has to look meanwhile. False where the system does not tell that. A second call-back
  /// replaces the first; an empty one ends it.
  virtual bool observe(std::function<void()> used) = 0;
};

}  // namespace corvana
