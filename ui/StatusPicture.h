#pragma once

#include <optional>
#include <string>

#include "platform/UserInterface.h"

namespace corvana {

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
  /// picture.
  static StatusPicture of(StatusIcon icon, int context, int style);
  /// More than 59 minutes shows the normal picture.
  static StatusPicture ofCountDown(int minutes, int context, int style);

  /// Where the left edge of a badge comes on a picture, in points.
  static double badgeLeft(double width, double badgeWidth) { return width + 1 - badgeWidth; }
  /// The pie on a picture of that size. It shrinks with the minutes and is purely red for the last
  /// ten.
  static StatusPie pie(int minutes, double width, double height);
};

}  // namespace corvana
