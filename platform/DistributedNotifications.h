#pragma once

#include <functional>
#include <string>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A message between the programs of the product: which program it is for, what it says, and
/// details.
struct DistributedNotification {
  std::string name;
  std::string object;  ///< empty: none
  ZAN_Value userInfo;  ///< a dictionary with text keys, or null
};

/// The channel between the programs of one user. Thread: main.
class DistributedNotifications {
 public:
  using Handler = std::function<void(const DistributedNotification&)>;
  virtual ~DistributedNotifications() = default;
  /// Delivered at once to whoever listens now; nobody listening is no error.
  virtual void post(const DistributedNotification& notification) = 0;
  /// One handler a name; a second one replaces the first.
  virtual void observe(const std::string& name, Handler handler) = 0;
  virtual void stopObserving(const std::string& name) = 0;
};

}  // namespace corvana
