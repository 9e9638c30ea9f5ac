#pragma once

#include <exception>
#include <functional>
#include <string>

namespace corvana {

class Clock;
class Input;
class Machine;
class RunLoop;
class SystemLog;
class UserInterface;
struct UserInterfaceSources;

/// A screen with what belongs to it. It comes from a file of its own that is only opened where
/// there is a desktop, so that an agent without one carries nothing of it. Thread: main.
class Desktop {
 public:
  struct Services {
    RunLoop& runLoop;
    const Clock& clock;
    const Machine& machine;
    SystemLog& log;
    /// Told of what an event of the screen has thrown.
    std::function<void(const std::exception&)> onException = {};
  };

  /// Its application object lives from its making to its end, around the loop.
  virtual ~Desktop() = default;

  /// Before anything else is asked of it.
  virtual void begin(const Services& services) = 0;
  virtual UserInterface& userInterface() = 0;
  virtual Input& input() = 0;
  /// From now on menus and windows have something to show.
  virtual void attach(const UserInterfaceSources& sources) = 0;
  /// What to do when the display has gone, which ends the process: called just before, when all
  /// that is left is to save and to have the process replaced. Nothing can be drawn any more.
  virtual void whenLost(std::function<void()> lost) = 0;
  /// Takes everything from the screen; before the sources and the loop end.
  virtual void end() = 0;
};

/// Makes the desktop with the program's words. Null where there is no display that answers, and the
/// reason in `reason`.
using OpenDesktop = Desktop* (*)(int& count, char** arguments, std::string& reason);
/// The name of such a function in the file.
inline constexpr const char* kOpenDesktop = "corvanaOpenDesktop";

}  // namespace corvana
