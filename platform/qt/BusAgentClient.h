#pragma once

#include "platform/DistributedNotifications.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// The other side of the agent's object, for a program that asks and waits for the answer, some
/// seconds at most. Thread: main.
class BusAgentClient {
 public:
  /// Connects at once; nothing is started by it.
  explicit BusAgentClient(BusConnection::Address address = BusConnection::sessionBusAddress);
  BusAgentClient(const BusAgentClient&) = delete;
  BusAgentClient& operator=(const BusAgentClient&) = delete;
  ~BusAgentClient();

  bool hasBus() const;

  // Fail with `absent` when no agent is on the bus, with `unavailable` when there is no bus or no
  // answer, and with the agent's own words otherwise.
  Result<ZAN_Value> status();
  Result<ZAN_Value> queue();
  Result<ZAN_Value> next();
  Result<ZAN_Value> why(std::int64_t ref);
  /// "queued", or why not.
  Result<std::string> launch(std::int64_t ref);

  /// Returns when the bus has it: what is asked afterwards is answered after it. Fails when there
  /// is no bus or when something of it cannot be sent, and then sends nothing.
  Outcome post(const DistributedNotification& notification);

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

/// Asks the same without waiting, for a program with windows. Thread: main.
class BusAgentAsker {
 public:
  /// Called from the loop, once for each question; fails as `BusAgentClient` does.
  using Answered = std::function<void(const Result<ZAN_Value>& answer)>;

  /// The connection outlives this object.
  explicit BusAgentAsker(BusConnection& connection);
  BusAgentAsker(const BusAgentAsker&) = delete;
  BusAgentAsker& operator=(const BusAgentAsker&) = delete;
  /// What was asked and is not yet answered is not told any more.
  ~BusAgentAsker();

  void status(Answered answered);
  void queue(Answered answered);
  /// A list of sentences.
  void why(std::int64_t ref, Answered answered);
  /// A text: "queued", or why not.
  void launch(std::int64_t ref, Answered answered);

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

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
