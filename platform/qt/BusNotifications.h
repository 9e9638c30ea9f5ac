#pragma once

#include "platform/DistributedNotifications.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// The channel between the programs over the user's session bus: the signal
/// `com.zan.corvana9.DistributedNotifications.Posted(s name, s object, a{sv} userInfo)` on the path
/// `/com/zan/corvana9/DistributedNotifications`. An empty object is none, an empty user information
/// is none.
///
/// Without a bus, and while it is gone, posts are lost and nothing is heard. Equal notifications
/// without user information that arrive together are delivered once.
class BusNotifications final : public DistributedNotifications {
 public:
  /// `log` hears once when something could not be sent. The connection outlives this object.
  BusNotifications(BusConnection& connection, RunLoop& runLoop, SystemLog& log);
  /// With a connection of its own.
  BusNotifications(RunLoop& runLoop, SystemLog& log,
                   BusConnection::Address address = BusConnection::sessionBusAddress);
  ~BusNotifications() override;

  void post(const DistributedNotification& notification) override;
  void observe(const std::string& name, Handler handler) override;
  void stopObserving(const std::string& name) override;

  bool isConnected() const;

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
