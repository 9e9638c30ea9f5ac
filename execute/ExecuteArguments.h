#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// What the agent tells the execute program on its command line, in this order; decimal integers
/// but for the seventh, which is empty. Words that are missing read as 0, so a call by hand needs
/// only the reference.
struct ExecuteArguments {
  std::int64_t reference = 0;
  bool showProgress = false;
  bool showMountMessage = false;
  bool launchedByScheduler = false;  ///< the agent always passes 1
  int retry = 0;                     ///< 1: the run before this one crashed
  int surveyMode = 0;
  bool estimateSize = false;  ///< only count what there is to copy
  bool setFrontProcess = false;

  /// `words` without the program's own name. Refused: no reference, one below 1, a word that is no
  /// number.
  static Result<ExecuteArguments> parse(std::span<const std::string_view> words);
};

}  // namespace corvana
