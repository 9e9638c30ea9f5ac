#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Machine.h"
#include "platform/RunLoop.h"

class QDBusConnection;

namespace corvana {

/// The connection to the user's session bus, shared by what speaks over it. Without a bus, and when
/// it goes away, it is looked for again after a while. Thread: main.
class BusConnection {
 public:
  /// The address of the bus, empty when there is none now; asked before each attempt to connect.
  using Address = std::function<std::string()>;

  /// Connects at once when it can. `log` hears once when there is no bus.
  BusConnection(RunLoop& runLoop, SystemLog& log, Address address = sessionBusAddress);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection();

  bool isConnected() const;
  /// Becomes another one with each new connection.
  QDBusConnection& bus();

  /// `body` is called after each new connection, and now when there is one. `owner` names it for
  /// `forget`.
  void whenConnected(const void* owner, std::function<void()> body);
  void forget(const void* owner);

  /// What the session says, else the socket in the user's run-time folder; nothing is started.
  static std::string sessionBusAddress();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
