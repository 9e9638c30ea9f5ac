#pragma once

#include <cstdint>
#include <optional>

namespace corvana {

class ActionQueue;
class ActionTree;
class UserInterface;
class ZAN_StringTable;
class ZAN_StringUtils;
class ZAN_Value;

/// The strip that names the action about to run and then shows how far it is. Thread: main.
class Announce {
 public:
  Announce(UserInterface& userInterface, ActionTree& tree, ActionQueue& queue,
           const ZAN_StringUtils& strings, const ZAN_StringTable& texts);

  bool isOpen() const { return mRef.has_value(); }
  /// Closes it when it names another action than the head of the queue, which has left meanwhile.
  void closeUnlessForQueueHead();
  /// Opens it for the head of the queue; nothing when the queue is empty or the action is gone.
  void showAnnounceForQueueHead();
  void closeAnnounceWindow();
  /// A progress report of the execute application, see the message "ExecuteProgress".
  void showProgress(const ZAN_Value& report);

 private:
  UserInterface& mUserInterface;
  ActionTree& mTree;
  ActionQueue& mQueue;
  const ZAN_StringUtils& mStrings;
  const ZAN_StringTable& mTexts;
  std::optional<std::int64_t> mRef;  ///< of the action it names, while it is open
};

}  // namespace corvana
