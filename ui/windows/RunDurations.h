#pragma once

#include <cstdint>
#include <map>

namespace corvana {

class ZAN_Value;

/// How long an action is expected to run: the mean of its last runs that were completed. Thread:
/// any once made.
class RunDurations {
 public:
  /// `history` is the stored array of the programmed history, header first.
  explicit RunDurations(const ZAN_Value& history);

  /// Seconds; a minute for an action that was never completed.
  double secondsOf(std::int64_t ref) const;

 private:
  struct Sum {
    double seconds = 0;
    int runs = 0;
  };
  std::map<std::int64_t, Sum> mSums;
};

}  // namespace corvana
