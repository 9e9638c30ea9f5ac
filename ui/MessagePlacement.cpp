#include "ui/MessagePlacement.h"

#include <algorithm>

namespace corvana {

namespace {

constexpr double kGap = 8;

bool overlap(const Rect& a, const Rect& b) {
  return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

/// The value nearest to `value` at which something of `size` fits between the ends.
double within(double value, double begin, double end, double size) {
  return std::max(begin, std::min(value, end - size));
}

}  // namespace

double MessagePlacement::messageWidth(double wanted, const Rect& screen) {
  return std::max(1.0, std::min(wanted, screen.width - kMessageMargin));
}

Point MessagePlacement::message(double width, double height, const Point& position,
                                const Rect& visible) {
  const auto part = [](double percent) { return std::clamp(percent, 0.0, 100.0) / 100; };
  const double top = visible.y + visible.height;
  return {visible.x + part(position.x) * std::max(0.0, visible.width - width),
          top - height - part(position.y) * std::max(0.0, visible.height - height)};
}

Point MessagePlacement::closeButton(const Rect& message) {
  return {message.x - kGap, message.y + message.height - kCloseOverlap};
}

Point MessagePlacement::announce(const std::optional<Point>& position, const Rect& visible,
                                 const std::optional<Rect>& below, double width, double height) {
  const double right = visible.x + visible.width;
  const double top = visible.y + visible.height;
  Point place = position.value_or(Point{right - width - kGap, top - height - kGap});
  place.x = within(place.x, visible.x, right, width);
  place.y = within(place.y, visible.y, top, height);
  if (below && overlap({place.x, place.y, width, height}, *below)) {
    place.y = below->y - kGap - height;
    if (place.y < visible.y) place.y = below->y + below->height + kGap;
  }
  return place;
}

}  // namespace corvana
