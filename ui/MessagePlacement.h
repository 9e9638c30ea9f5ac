#pragma once

#include <optional>

#include "platform/Input.h"

namespace corvana {

/// Where message and announce windows come on the screen. Everything in the coordinates of `Input`,
/// origin at the lower left; a window is given by its lower left corner.
class MessagePlacement {
 public:
  /// The strip of the announce window, as far as its texts have room in that.
  static constexpr double kAnnounceWidth = 350;
  static constexpr double kAnnounceHeight = 18;
  /// How far from the edge of the screen the widest message stays, both sides together.
  static constexpr double kMessageMargin = 32;
  /// How far the close button stands out over the message's top edge.
  static constexpr double kCloseOverlap = 16;

  /// The preferred width within what the screen allows.
  static double messageWidth(double wanted, const Rect& screen);
  /// `position` in per cent of the free room, from the left and from the top: (50, 10) is centred
  /// near the top.
  static Point message(double width, double height, const Point& position, const Rect& visible);
  /// The lower edge of the close button's window, whose height does not matter: it hangs over the
  /// top edge of the message.
  static Point closeButton(const Rect& message);
  /// Where the user has put it, as far as that is on the screen; else at the upper right. With
  /// `below`, a message window that it must not cover, it makes room for that one.
  static Point announce(const std::optional<Point>& position, const Rect& visible,
                        const std::optional<Rect>& below, double width = kAnnounceWidth,
                        double height = kAnnounceHeight);
};

}  // namespace corvana
