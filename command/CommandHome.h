#pragma once

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "command/Commands.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/SystemClock.h"

namespace corvana {

/// The data folder of the user's home as a command opens it, with what else it needs to know of the
/// machine. What the store has to say in the log goes to the console's `err`. Making one touches
/// nothing on disk.
class CommandHome {
 public:
  explicit CommandHome(const Console& console);

  Machine& machine() { return mMachine; }
  ActionStore& store() { return mStore; }
  ActionTree& tree() { return mTree; }
  /// Whether there is a data folder; without one nothing should be read, since reading creates it.
  bool isThere() const;
  /// Calendar and now, taken once when the command began.
  const ActionsTools& tools() const { return mTools; }
  const ZAN_DateUtils& calendar() const { return mTools.calendar(); }
  ReferenceTime now() const { return mTools.now(); }

  /// "Tue 2026-11-24 08:00".
  std::string dateText(ReferenceTime date) const;

 private:
  class ConsoleLog final : public SystemLog {
   public:
    explicit ConsoleLog(std::ostream& out) : mOut(out) {}
    void write(const std::string& line) override;

   private:
    std::ostream& mOut;
  };

  SystemClock mClock;
  LinuxMachine mMachine;
  ConsoleLog mLog;
  ZAN_StringTable mTexts;
  ActionStore mStore;
  ActionTree mTree;
  ActionsTools mTools;
};

/// A text from a file as it may be shown on a terminal: control characters become blanks.
std::string printable(std::string_view text);

}  // namespace corvana
