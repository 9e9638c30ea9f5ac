#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "core/record/Deadline.h"
#include "platform/Input.h"
#include "platform/UserInterface.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

class Announce;
class StatusItem;
struct Records;

/// The text beside the floating icon: what the agent does now and how far that is, then what comes,
/// `count` lines at most. Thread: main.
std::vector<std::string> floatingIconLines(const UserInterfaceSources& sources, std::size_t count);

/// What is seen of the agent above other windows: the small icon that floats there, what the
/// pointer in the menu bar brings up, and how far the running execution is, in the icon and in the
/// strip that names the action. It follows what changes. Thread: main.
class FloatingIcon {
 public:
  FloatingIcon(Records& records, const Announce& announce, StatusItem& statusItem);

  /// Shows or hides it as the user prefers: mode 0 always, 2 never, others leave it as it is.
  void applyMode();
  /// Its turn: where the pointer rests. In the right third of the menu bar it brings up what is
  /// shown on hover; elsewhere a visible floating icon goes when its time is over.
  void turn();
  /// From when on a turn may have something to do.
  ReferenceTime nextTurn() const;

 private:
  void follow(ChangeSet changes);
  void show();
  void showProgress();
  void hover(const Point& pointer, const Rect& screen, const Rect& visibleFrame);

  Records& m;
  const Announce& mAnnounce;
  StatusItem& mStatusItem;
  UserInterface& mUserInterface;
  Deadline mCloseFloatingIcon;
};

}  // namespace corvana
