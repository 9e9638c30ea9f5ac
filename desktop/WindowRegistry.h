#pragma once

#include <map>
#include <memory>
#include <set>

#include "platform/RunLoop.h"
#include "platform/UserInterface.h"

namespace corvana {

class AgentWindow;
struct UserInterfaceSources;

/// The windows that are up. Thread: main.
class WindowRegistry {
 public:
  explicit WindowRegistry(RunLoop& runLoop);
  ~WindowRegistry();

  /// Nothing can be shown before there are sources, nor after they are taken away (null).
  void setSources(const UserInterfaceSources* sources);

  /// Makes the window or brings it to the front, with the keyboard.
  void show(Window which);
  /// Makes the window without taking the keyboard from another; one that is up stays as it is.
  void showQuietly(Window which);
  void hide(Window which);
  /// The text of a window of text; kept for a window that is not up yet, until it is closed.
  void setText(Window which, const std::string& text);
  bool isVisible(Window which) const;
  bool anyVisible() const;
  void bringToFront();
  /// Every visible window is drawn anew, once, after what is being done now.
  void refresh();
  /// The same for what this one says of what goes on now, if it is visible.
  void refreshState(Window which);

 private:
  /// A moment after the last window has gone.
  void giveMemoryBack();

  /// Null for one that this desktop does not have.
  AgentWindow* make(Window which);
  void refreshLater();

  RunLoop& mRunLoop;
  const UserInterfaceSources* mSources = nullptr;
  std::map<Window, std::unique_ptr<AgentWindow>> mWindows;
  std::map<Window, std::string> mTexts;
  bool mWillRefresh = false;
  RunLoop::TimerId mGiveBackTimer = 0;
  bool mAllChanged = false;
  std::set<Window> mChanged;  ///< in their state
};

}  // namespace corvana
