#pragma once

#include <QSocketNotifier>
#include <chrono>
#include <memory>

#include "desktop/ScreenInput.h"

namespace corvana {

/// Keyboard and pointer as the X server sees them, over a connection of its own. While the user
/// does nothing, looking costs one question to the server. Thread: main.
class X11Input final : public ScreenInput {
 public:
  /// A connection to the X server that the environment names; null when it cannot be reached.
  static std::shared_ptr<void> answeringDisplay();
  /// Null where the desktop is not the X server's own: another platform of Qt, or an X server that
  /// only serves the windows of a Wayland desktop and sees no keys of others.
  static std::unique_ptr<Input> make();

  ~X11Input() override;

  KeyMap keyMap() override;
  bool optionKeyDown() override;
  bool mouseButtonDown() override;
  std::optional<Point> pointer() override;
  std::optional<double> idleSeconds() override;
  bool observe(std::function<void()> used) override;

 private:
  class Connection;
  explicit X11Input(std::unique_ptr<Connection> connection);
  void look();
  void takeEvents();

  std::unique_ptr<Connection> mConnection;
  std::chrono::steady_clock::time_point mLooked{};
  KeyMap mKeys{};
  unsigned mMask = 0;  ///< buttons and modifiers
  QPoint mPointer;
  std::optional<double> mIdle;
  std::unique_ptr<QSocketNotifier> mEvents;
  std::function<void()> mUsed;
};

/// What an X11 screen has besides windows. Without an X server everything is absent. Thread: main.
class X11Screen {
 public:
  X11Screen();
  X11Screen(const X11Screen&) = delete;
  X11Screen& operator=(const X11Screen&) = delete;
  ~X11Screen();

  /// Whether windows may be translucent.
  bool hasCompositor() const;
  /// Whether a panel takes icons that are windows.
  bool hasTray() const;
  /// Calls each time such a panel comes; an empty function ends it.
  void whenTrayComes(std::function<void()> came);

 private:
  class Connection;
  std::unique_ptr<Connection> mConnection;
};

}  // namespace corvana
