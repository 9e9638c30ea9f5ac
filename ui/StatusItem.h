#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "platform/UserInterface.h"
#include "ui/MenuItem.h"

namespace corvana {

struct Records;
struct Work;

/// The filled pie of the count-down. Lengths in points with the origin at the lower left, angles in
/// degrees, 0 to the right, growing against the clock; it reaches from `from` clockwise to `to`.
struct StatusPie {
  double centreX = 0;
  double centreY = 0;
  double radius = 0;
  double from = 90;
  double to = 90;
  double red = 0;
  double green = 0;
  double blue = 0;

  /// How far it reaches, clockwise, below 360.
  double sweep() const;
};

/// What the status item shows, put together from pictures of the resources.
struct StatusPicture {
  std::string image;           ///< name of the resource without ".png"
  std::string badge;           ///< the same for what is drawn over its right edge; empty: nothing
  std::optional<int> minutes;  ///< of the count-down, whose pie is drawn over it

  bool operator==(const StatusPicture&) const = default;

  /// `style`: 1 black, 2 white, else coloured. The badge of a context only goes with the normal
  /// picture, in its amber form too.
  static StatusPicture of(StatusIcon icon, int context, int style);
  /// More than 59 minutes shows the normal picture.
  static StatusPicture ofCountDown(int minutes, int context, int style);

  /// Where the left edge of a badge comes on a picture, in points.
  static double badgeLeft(double width, double badgeWidth) { return width + 1 - badgeWidth; }
  /// The pie on a picture of that size. It shrinks with the minutes and is purely red for the last
  /// ten.
  static StatusPie pie(int minutes, double width, double height);
};

/// The agent's place in the menu bar: whether it is there, which picture it shows, the title of its
/// menu and its tool tip. It follows what changes. Thread: main.
class StatusItem {
 public:
  StatusItem(Records& records, const Work& work);

  /// Nothing while it exists; nothing while icons are never wanted and neither the main application
  /// runs nor an execution error waits.
  void createStatusItem();
  bool exists() const;

  /// Its turn at tick `n`: shows or hides the item as the user wants it, and draws what the state
  /// asks for; errors, pause and survey results alternate with the normal picture, two ticks a
  /// round. The normal picture is amber while something lacks what cannot be copied.
  /// `secondsToNext` draws the count-down and is only given while it is due.
  void turn(std::int64_t n, std::optional<int> secondsToNext);
  /// From when on a turn has something to do.
  ReferenceTime nextTurn() const;

  /// What stands at the top of the menu, and its colour: what holds the scheduler back or that the
  /// running action is stuck, else the running action or the next one.
  std::string shownTitle() const;
  MenuColour titleColour() const;
  /// What has run well but for what cannot be copied, and was not seen; empty for nothing.
  std::string lackingText() const;

 private:
  void follow(ChangeSet changes);
  void followErrorState();
  void followPreferences();
  bool isNeeded() const;
  void applyMode();
  void update(std::int64_t n, std::optional<int> secondsToNext);
  void showTexts();
  void setMenuBarIcon(StatusIcon icon);
  void setMenuBarTimerIcon(int minutes);

  Records& m;
  const Work& mWork;
  UserInterface& mUserInterface;
  std::optional<std::pair<StatusIcon, int>> mCurrent;  ///< with its context
  bool mNobodySees = false;                            ///< there is no place for it
  bool mShowsError = false;
  std::string mDrawnTitle;
  std::string mDrawnToolTip;
};

}  // namespace corvana
