#include "ui/StatusPicture.h"

#include <algorithm>
#include <cmath>

#include "actions/ActionContext.h"

namespace corvana {

namespace {

constexpr int kLongestCountDown = 59;
constexpr int kAlreadyRed = 10;

std::string nameOf(StatusIcon icon) {
  switch (icon) {
    case StatusIcon::normal:
      return "MenuNormal";
    case StatusIcon::disabled:
      return "MenuDisabled";
    case StatusIcon::diskChanged:
      return "MenuDisabledDiskChanged";
    case StatusIcon::willDisable:
      return "MenuWillDisable";
    case StatusIcon::running:
      return "MenuRunning";
    case StatusIcon::pause:
      return "MenuPause";
    case StatusIcon::surveyResult:
      return "MenuSurvey";
    case StatusIcon::error:
      return "MenuRed";
  }
  return "MenuNormal";
}

std::string inStyle(const std::string& name, int style) {
  return name + (style == 1 ? "Black" : style == 2 ? "White" : "");
}

std::string badgeOf(int context) {
  if (context <= 0) return {};
  switch (static_cast<ActionContext>(context)) {
    case ActionContext::office:
      return "BadgeOffice";
    case ActionContext::home:
      return "BadgeHome";
    default:
      return "BadgeNomad";
  }
}

}  // namespace

double StatusPie::sweep() const {
  const double turn = std::fmod(from - to, 360.0);
  return turn < 0 ? turn + 360.0 : turn;
}

StatusPicture StatusPicture::of(StatusIcon icon, int context, int style) {
  StatusPicture picture;
  // The alarm has one colour whatever the style.
  picture.image = icon == StatusIcon::error ? nameOf(icon) : inStyle(nameOf(icon), style);
  if (icon == StatusIcon::normal) picture.badge = badgeOf(context);
  return picture;
}

StatusPicture StatusPicture::ofCountDown(int minutes, int context, int style) {
  if (minutes > kLongestCountDown) return of(StatusIcon::normal, context, style);
  return {inStyle("MenuNormalTimer", style), {}, std::max(0, minutes)};
}

StatusPie StatusPicture::pie(int minutes, double width, double height) {
  StatusPie pie;
  pie.centreX = width / 2;
  pie.centreY = height / 2 - 1;
  pie.radius = width / 2 - 3.5;
  pie.from = 90;
  pie.to = minutes * 359.0 / 60.0 + 91;
  const double t = std::max(0, minutes - kAlreadyRed);
  pie.red = 1 - t / 60;
  pie.green = t / 120;
  pie.blue = t / 90;
  return pie;
}

}  // namespace corvana
