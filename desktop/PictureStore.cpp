#include "desktop/PictureStore.h"

#include <QtWidgets>
#include <algorithm>
#include <utility>

#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr std::size_t kRemembered = 4;
/// Qt counts angles in sixteenths of a degree.
constexpr double kQtDegree = 16;

void drawPie(QPainter& painter, int minutes, double width, double height) {
  const StatusPie pie = StatusPicture::pie(minutes, width, height);
  const QRectF square(pie.centreX - pie.radius, height - pie.centreY - pie.radius, 2 * pie.radius,
                      2 * pie.radius);
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor::fromRgbF(float(pie.red), float(pie.green), float(pie.blue)));
  painter.drawPie(square, qRound(pie.from * kQtDegree), qRound(-pie.sweep() * kQtDegree));
}

}  // namespace

PictureStore::PictureStore(std::string resourcesFolder) : mFolder(std::move(resourcesFolder)) {}

QImage PictureStore::image(const std::string& name, int scale) const {
  QImage read(qt(mFolder + "/" + name + (scale == 2 ? "@2x.png" : ".png")));
  // Qt makes of "@2x" in a name that its lengths are halved.
  read.setDevicePixelRatio(1);
  return read;
}

QImage PictureStore::compose(const StatusPicture& picture, int scale) const {
  QImage drawn = image(picture.image, scale).convertToFormat(QImage::Format_ARGB32_Premultiplied);
  if (drawn.isNull()) return drawn;
  QPainter painter(&drawn);
  painter.setRenderHint(QPainter::Antialiasing);
  const double width = double(drawn.width()) / scale;
  const double height = double(drawn.height()) / scale;
  if (!picture.badge.empty()) {
    const QImage badge = image(picture.badge, scale);
    const double left = StatusPicture::badgeLeft(width, double(badge.width()) / scale);
    painter.drawImage(QPointF(left * scale, drawn.height() - badge.height()), badge);
  }
  painter.scale(scale, scale);
  if (picture.minutes) drawPie(painter, *picture.minutes, width, height);
  return drawn;
}

QIcon PictureStore::icon(const StatusPicture& picture) {
  const auto known = std::ranges::find(mLast, picture, &decltype(mLast)::value_type::first);
  if (known != mLast.end()) return known->second;
  QIcon icon;
  for (const int scale : {1, 2}) {
    const QImage drawn = compose(picture, scale);
    if (!drawn.isNull()) icon.addPixmap(QPixmap::fromImage(drawn));
  }
  mLast.emplace_front(picture, icon);
  if (mLast.size() > kRemembered) mLast.pop_back();
  return icon;
}

QIcon PictureStore::icon(const std::string& name) const {
  QIcon icon;
  for (const int scale : {1, 2}) icon.addPixmap(QPixmap::fromImage(image(name, scale)));
  return icon;
}

}  // namespace corvana
