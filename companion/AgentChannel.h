#pragma once

#include "platform/DistributedNotifications.h"

namespace corvana {

/// Posts on the user's session bus and waits until the bus has passed it on, for a second at most.
/// False when there is no bus.
bool postOnBus(const DistributedNotification& notification);

/// Tells a running agent that the stored tree has changed, so that it reads it again at once, and
/// waits until the bus has passed that on, for a second at most. Does nothing when there is no
/// session bus: the agent finds the change by itself at its next evaluation.
void tellAgentThatActionListChanged();

}  // namespace corvana
