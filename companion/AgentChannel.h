#pragma once

namespace corvana {

/// Tells a running agent that the stored tree has changed, so that it reads it again at once. Does
/// nothing when none can be reached: the agent finds the change by itself at its next evaluation.
void tellAgentThatActionListChanged();

}  // namespace corvana
