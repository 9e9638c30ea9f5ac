#pragma once

#include <map>
#include <string_view>

#include "platform/DistributedNotifications.h"
#include "platform/RunLoop.h"

namespace corvana {

/// The channel between the programs without a bus: posts are kept, and delivered through the loop
/// to whoever observes them, the test playing the sibling programs included.
class SimulatedNotifications final : public DistributedNotifications {
 public:
  explicit SimulatedNotifications(RunLoop& runLoop) : mRunLoop(runLoop) {}

  void post(const DistributedNotification& notification) override;
  void observe(const std::string& name, Handler handler) override;
  void stopObserving(const std::string& name) override { mHandlers.erase(name); }

  /// A sibling program posts; the observers hear it when the loop next runs.
  void receive(const std::string& name, const std::string& object, ZAN_Value userInfo = {});
  /// The test plays the program that listens to that name; called through the loop for each post.
  void setSibling(const std::string& name, Handler handler);

  bool isObserved(const std::string& name) const { return mHandlers.contains(name); }
  /// How many posts had this name and object.
  std::size_t count(std::string_view name, std::string_view object) const;
  /// The latest post with this name and object, null without one.
  const DistributedNotification* latest(std::string_view name, std::string_view object) const;

  std::vector<DistributedNotification> posts;  ///< by the agent, in order

 private:
  void deliver(const DistributedNotification& notification);

  RunLoop& mRunLoop;
  std::map<std::string, Handler> mHandlers;
  std::map<std::string, Handler> mSiblings;
};

}  // namespace corvana
