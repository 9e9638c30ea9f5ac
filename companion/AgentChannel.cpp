#include "companion/AgentChannel.h"

namespace corvana {

void tellAgentThatActionListChanged() {}

}  // namespace corvana
