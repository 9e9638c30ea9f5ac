#include "platform/simulated/SimulatedNotifications.h"

#include <algorithm>

namespace corvana {

void SimulatedNotifications::post(const DistributedNotification& notification) {
  posts.push_back(notification);
  mRunLoop.performOnMain([this, notification] {
    const auto found = mSiblings.find(notification.name);
    if (found == mSiblings.end()) return;
    const Handler handler = found->second;
    handler(notification);
  });
  if (isObserved(notification.name)) deliver(notification);
}

void SimulatedNotifications::observe(const std::string& name, Handler handler) {
  mHandlers[name] = std::move(handler);
}

void SimulatedNotifications::receive(const std::string& name, const std::string& object,
                                     ZAN_Value userInfo) {
  deliver({name, object, std::move(userInfo)});
}

void SimulatedNotifications::deliver(const DistributedNotification& notification) {
  mRunLoop.performOnMain([this, notification] {
    const auto found = mHandlers.find(notification.name);
    if (found == mHandlers.end()) return;
    const Handler handler = found->second;
    handler(notification);
  });
}

void SimulatedNotifications::setSibling(const std::string& name, Handler handler) {
  mSiblings[name] = std::move(handler);
}

std::size_t SimulatedNotifications::count(std::string_view name, std::string_view object) const {
  return static_cast<std::size_t>(std::count_if(posts.begin(), posts.end(), [&](const auto& one) {
    return one.name == name && one.object == object;
  }));
}

const DistributedNotification* SimulatedNotifications::latest(std::string_view name,
                                                              std::string_view object) const {
  const auto found = std::find_if(posts.rbegin(), posts.rend(), [&](const auto& one) {
    return one.name == name && one.object == object;
  });
  return found == posts.rend() ? nullptr : &*found;
}

}  // namespace corvana
