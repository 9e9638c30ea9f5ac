#pragma once

namespace corvana {

/// Opens /dev/null for each of the three standard streams that this process was started without, so
/// that no other file takes its number.
void openMissingStandardStreams();

}  // namespace corvana
