#include "core/record/DebugLog.h"

#include <cstdint>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/TextFiles.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kTalkativeSeconds = 60;

}  // namespace

DebugLog::DebugLog(const Clock& clock, TextFiles& files, ReferenceTime startOfScheduler,
                   bool mainAppRanAtStartup)
    : mClock(clock),
      mFiles(files),
      mStartOfScheduler(startOfScheduler),
      mMainAppRanAtStartup(mainAppRanAtStartup) {}

void DebugLog::logMessage(std::string_view text, bool always) {
  if (!mMainAppRanAtStartup) return;
  const double elapsed = mClock.now() - mStartOfScheduler;
  if (!always && elapsed >= kTalkativeSeconds) return;
  // Kept to 32 bits as readers of the file expect: after 24 days it begins anew.
  const auto milliseconds = static_cast<std::int32_t>(static_cast<std::int64_t>(elapsed * 1000));
  mFiles.addToLogFile(ZAN_StringUtils::format("(+%d ms) - %@", {milliseconds, text}));
}

}  // namespace corvana
