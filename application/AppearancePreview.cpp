#include "application/AppearancePreview.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include "application/Household.h"
#include "application/Look.h"
#include "core/record/Preferences.h"
#include "desktop/FloatingWidget.h"
#include "desktop/MessageWindows.h"
#include "desktop/Texts.h"
#include "ui/MessagePlacement.h"

namespace corvana {

namespace {

/// Of the desktop that is shown, in its own pixels.
constexpr double kWide = 1100;
constexpr double kHigh = 460;
constexpr double kPanel = 32;
constexpr double kIcon = 22;
constexpr double kGap = 16;

}  // namespace

AppearancePreview::AppearancePreview(Household& household, const Preferences& preferences)
    : mHousehold(household),
      mPreferences(preferences),
      mPictures(
          household.store().installPaths().installPathForCode(InstallPaths::schedulerResources)) {
  QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  policy.setHeightForWidth(true);
  setSizePolicy(policy);
  setAccessibleName(household.text("SettingsPreview"));
  readAs(this, QAccessible::Graphic);
}

int AppearancePreview::heightForWidth(int width) const {
  return static_cast<int>(width * kHigh / kWide);
}

void AppearancePreview::load() {
  MessageView::Look look =
      MessageView::lookOf(mPreferences, mPictures.image(PictureStore::kLogo, 2));
  look.widest = kWide - MessagePlacement::kMessageMargin;
  MessageView message(true, mHousehold.text("SettingsSampleTitle"),
                      mHousehold.text("SettingsSampleText"), look);
  mMessage = message.grab();
  mFloating = floatingIcon();
  update();
}

/// With the names of what comes next, as far as it would show them.
QPixmap AppearancePreview::floatingIcon() {
  FloatingIconView icon(true, mPictures.icon(std::string(PictureStore::kLogo)));
  ProgrammedAction::Nodes actions;
  mHousehold.actions().getListOfAllProgrammedActions(actions);
  QStringList lines;
  for (const ProgrammedAction* action : actions) {
    if (lines.size() >= mPreferences.mPrefFloatingIconNbLines) break;
    if (const auto next =
            Forecast(mHousehold.calendar(), action->schedule()).next(mHousehold.now()))
      lines << qt(mHousehold.strings().getShortTime(next->date) + "  " + action->getTitle());
  }
  if (lines.isEmpty()) lines << mHousehold.text("SettingsSampleTitle");
  icon.setLines(lines);
  return icon.grab();
}

void AppearancePreview::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  QPainterPath screen;
  screen.addRoundedRect(rect(), Look::space(2), Look::space(2));
  painter.setClipPath(screen);
  const double scale = width() / kWide;
  painter.scale(scale, scale);
  const QRectF all(0, 0, kWide, kHigh);
  QLinearGradient sky(all.topLeft(), all.bottomRight());
  sky.setColorAt(0, Look::isDark() ? QColor(38, 58, 84) : QColor(120, 160, 204));
  sky.setColorAt(1, Look::isDark() ? QColor(24, 34, 48) : QColor(206, 222, 236));
  painter.fillRect(all, sky);
  painter.fillRect(QRectF(0, 0, kWide, kPanel),
                   Look::isDark() ? QColor(20, 24, 30) : QColor(244, 245, 247));
  if (mPreferences.mShowIconMenuMode != IconShown::statusIconNever) {
    const StatusPicture picture =
        StatusPicture::of(StatusIcon::normal, 0, mPreferences.mShowIconMenuType);
    mPictures.icon(picture).paint(
        &painter, QRectF(kWide - kGap - 2 * kIcon, (kPanel - kIcon) / 2, kIcon, kIcon).toRect());
  }
  const Rect visible{0, 0, kWide, kHigh - kPanel};
  const auto draw = [&](const QPixmap& picture, const Point& place, double opacity) {
    painter.setOpacity(opacity);
    const QSizeF size = picture.deviceIndependentSize();
    // Places are counted from below.
    painter.drawPixmap(QPointF(place.x, kHigh - place.y - size.height()), picture);
    painter.setOpacity(1);
  };
  if (mPreferences.mShowFloatingIconMode != IconShown::floatingIconNever) {
    const QSizeF size = mFloating.deviceIndependentSize();
    draw(mFloating, {kWide - kGap - size.width(), visible.height - kGap - size.height()},
         mPreferences.mPrefFloatingIconTransparency / 100);
  }
  const QSizeF size = mMessage.deviceIndependentSize();
  draw(mMessage,
       MessagePlacement::message(size.width(), size.height(), mPreferences.mShowMessagePosition,
                                 visible),
       mPreferences.mPrefShowMessageTransparency / 100);
}

}  // namespace corvana
