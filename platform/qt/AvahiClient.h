#pragma once

#include "platform/RunLoop.h"

class QDBusConnection;
class QDBusMessage;
class QObject;

namespace corvana::avahi {

/// Something that lives in the daemon for us, and has to be made anew when the daemon comes back.
class Client {
 public:
  virtual ~Client() = default;
  /// The daemon has come, or works under another host name now: begin, or begin anew.
  virtual void daemonIsThere() = 0;
  /// It is gone, and all that was in it.
  virtual void daemonIsGone() = 0;
  /// A signal of any object of the daemon's.
  virtual void objectSpeaks(const QDBusMessage& message) = 0;
};

/// The daemon, as its clients know it.
class Daemon {
 public:
  /// Null while there is no bus.
  virtual QDBusConnection* bus() = 0;
  virtual RunLoop& runLoop() = 0;
  virtual QObject* context() = 0;  ///< lives as long as this
  /// `daemonIsThere` is called from the loop soon when there is a bus.
  virtual void add(Client& client) = 0;
  virtual void remove(Client& client) = 0;
  virtual void tellAbsence() = 0;

 protected:
  ~Daemon() = default;
};

}  // namespace corvana::avahi
