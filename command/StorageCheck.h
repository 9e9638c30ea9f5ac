#pragma once

#include <string>
#include <vector>

#include "command/Answer.h"

namespace corvana {

class CommandHome;

/// What is wrong with the actions, the settings and the history as they are stored, with a remedy:
/// damaged, not readable, or damaged within the last month and put aside. Reads them.
std::vector<std::string> storageTroubles(CommandHome& home);

/// The answer of a command that tells how things are, which is not all when there are such
/// troubles: they become its reason, and it has failed.
Answer withStorageTroubles(Answer answer, CommandHome& home);

}  // namespace corvana
