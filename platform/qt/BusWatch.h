#pragma once

#include <functional>
#include <memory>

#include "platform/DistributedNotifications.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// Hears everything that the programs tell each other over the bus, whomever it is for. Thread:
/// main.
class BusWatch {
 public:
  struct Handlers {
    DistributedNotifications::Handler notified;
    std::function<void()> changed;        ///< the agent answers something else now
    std::function<void(bool)> agentIsOn;  ///< it came, or left
  };

  /// The connection outlives this object.
  BusWatch(BusConnection& connection, Handlers handlers);
  BusWatch(const BusWatch&) = delete;
  BusWatch& operator=(const BusWatch&) = delete;
  ~BusWatch();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
