#pragma once

namespace corvana {

/// Tells a running agent that the stored tree has changed, so that it reads it again at once, and
/// waits until the bus has it. Does nothing when there is no session bus: the agent finds the
/// change by itself at its next evaluation.
void tellAgentThatActionListChanged();

}  // namespace corvana
