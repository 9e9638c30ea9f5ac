#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/DistributedNotifications.h"

namespace corvana {

/// The channel where there is no bus: nobody else is reached, and nobody reaches us.
class LocalNotifications final : public DistributedNotifications {
 public:
  void post(const DistributedNotification& /*notification*/) override {}
  void observe(const std::string& name, Handler handler) override {
    mHandlers[name] = std::move(handler);
  }
  void stopObserving(const std::string& name) override { mHandlers.erase(name); }

 private:
  std::map<std::string, Handler> mHandlers;
};

}  // namespace corvana
