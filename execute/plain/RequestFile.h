#pragma once

#include <cstdint>
#include <string>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

/// The file by which a command asks the execute program for something else than a run, and the one
/// in which that answers while it goes on.
struct RequestFile {
  RequestFile() = delete;
  /// Where the execute program looks when the agent starts it for an estimate of that action.
  static std::string pathIn(const std::string& folder, std::int64_t reference) {
    return ZAN_FilesUtils::joinedPath(folder, "Request " + std::to_string(reference) + ".json");
  }
  static std::string answerOf(const std::string& request) { return request + ".answer"; }
};

}  // namespace corvana
