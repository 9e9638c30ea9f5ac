#pragma once

#include "platform/Clock.h"
#include "platform/DistributedNotifications.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// The agent on the user's session bus: the name `com.zan.corvana9.Scheduler` with the object
/// `/com/zan/corvana9/Scheduler` and its interface `com.zan.corvana9.Scheduler`: `Status() →
/// a{sv}`, `Queue() → aa{sv}`, `Next() → aa{sv}`, `Why(x) → as`, `Launch(x) → s` ("queued", or why
/// not), and the signal `Changed`.
///
/// Who asks in other words, or has more questions waiting than a program can use, gets an error of
/// the bus. Questions and notifications are handled in the order in which they arrived. While the
/// name belongs to another program, the agent waits for it.
class BusAgentObject final : public AgentObject {
 public:
  /// The three outlive this object.
  BusAgentObject(BusConnection& connection, RunLoop& runLoop, const Clock& clock);
  ~BusAgentObject() override;

  void appear(AgentAnswers& answers) override;
  void disappear() override;
  void changed() override;

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
