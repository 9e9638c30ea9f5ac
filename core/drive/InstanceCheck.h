#pragma once

namespace corvana {

class Messages;
class SchedulerLog;
class ZAN_StringTable;
struct Platform;

/// There is to be one agent for a user. Thread: main.
class InstanceCheck {
 public:
  InstanceCheck(Platform& platform, SchedulerLog& log, Messages& messages,
                const ZAN_StringTable& texts)
      : mPlatform(platform), mLog(log), mMessages(messages), mTexts(texts) {}

  /// Whether another agent was there first: of two that start at the same moment one has to stay.
  bool anotherInstanceRuns() const;
  /// Asks the other to show itself, on this one's desktop if it has none, says so, and blocks for
  /// 15 s, so that the user can read it.
  void leaveToTheOtherInstance();

 private:
  Platform& mPlatform;
  SchedulerLog& mLog;
  Messages& mMessages;
  const ZAN_StringTable& mTexts;
};

}  // namespace corvana
