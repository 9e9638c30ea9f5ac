#pragma once

#include <functional>
#include <memory>

namespace corvana {

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
