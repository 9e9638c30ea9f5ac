#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/DistributedNotifications.h"
#include "platform/Machine.h"
#include "platform/RunLoop.h"

namespace corvana {

/// The channel between the programs over the user's session bus: the signal
/// `com.zan.corvana9.DistributedNotifications.Posted(s name, s object, a{sv} userInfo)` on the path
/// `/com/zan/corvana9/DistributedNotifications`. An empty object is none, an empty user information
/// is none.
///
/// Without a bus, and while it is gone, posts are lost and nothing is heard; it is looked for again
/// after a while. Equal notifications without user information that arrive together are delivered
/// once.
class BusNotifications final : public DistributedNotifications {
 public:
  /// The address of the bus, empty when there is none now; asked before each attempt to connect.
  using Address = std::function<std::string()>;

  /// Connects at once when it can. `log` hears once when there is no bus and once when something
  /// could not be sent.
  BusNotifications(RunLoop& runLoop, SystemLog& log, Address address = sessionBusAddress);
  ~BusNotifications() override;

  void post(const DistributedNotification& notification) override;
  void observe(const std::string& name, Handler handler) override;
  void stopObserving(const std::string& name) override;

  bool isConnected() const;

  /// What the session says, else the socket in the user's run-time folder; nothing is started.
  static std::string sessionBusAddress();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
