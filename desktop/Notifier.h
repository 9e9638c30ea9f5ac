#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace corvana {

class BusSignal;

/// Notices of the desktop, by its notification service. Thread: main.
class Notifier {
 public:
  explicit Notifier(std::string iconPath);
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;
  ~Notifier();

  /// The user chose a notice or its button.
  std::function<void()> onActivated;

  /// Whether there is a service that takes notices, or one that would be started for them.
  bool isAnswered() const;

  /// `button` may be empty. `refused` is called when no service takes it: later, or at once when
  /// there is no bus to ask on.
  void deliver(const std::string& title, const std::string& text, const std::string& button,
               std::function<void()> refused);

 private:
  void listen();

  std::string mIconPath;
  std::set<std::uint32_t> mDelivered;  ///< numbers of those that may still be chosen
  std::unique_ptr<BusSignal> mInvoked;
  std::unique_ptr<BusSignal> mClosed;
  std::shared_ptr<int> mAlive = std::make_shared<int>(0);
};

}  // namespace corvana
