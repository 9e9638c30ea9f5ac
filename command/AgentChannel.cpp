#include "command/AgentChannel.h"

#include "platform/qt/BusAgentClient.h"

namespace corvana {

void tellAgentThatActionListChanged() {
  // Without a bus nobody hears it, and nobody needs to.
  static_cast<void>(BusAgentClient().post({"CVA9_SchedulerNotification", "ActionListChanged", {}}));
}

}  // namespace corvana
