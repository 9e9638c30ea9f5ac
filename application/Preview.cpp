#include "application/Preview.h"

#include <QFile>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QImage>
#include <QImageReader>
#include <QStringDecoder>
#include <QVBoxLayout>
#include <algorithm>

#include "application/Look.h"

namespace corvana {

namespace {

constexpr qint64 kLargestPicture = 64 << 20;
constexpr int kPictureWidth = 640;
constexpr qint64 kTextBytes = 2048;
constexpr int kLines = 9;

struct Contents {
  QImage picture;
  QString text;
};

/// Empty for what is no text.
QString beginningOf(QFile& file) {
  QByteArray bytes = file.read(kTextBytes);
  if (bytes.contains('\0')) return {};
  QStringDecoder decoder(QStringDecoder::Utf8);
  QString text = decoder(bytes);
  // The last character may have been cut.
  if (decoder.hasError() && bytes.size() < kTextBytes) return {};
  const QStringList lines = text.split('\n');
  return lines.mid(0, kLines).join('\n').trimmed();
}

Contents contentsOf(const QString& path) {
  Contents contents;
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return contents;
  QImageReader reader(&file);
  reader.setAutoTransform(true);
  if (file.size() <= kLargestPicture && reader.canRead()) {
    const QSize size = reader.size();
    if (size.width() > kPictureWidth)
      reader.setScaledSize(size.scaled(kPictureWidth, kPictureWidth * 4, Qt::KeepAspectRatio));
    contents.picture = reader.read();
    return contents;
  }
  file.seek(0);
  contents.text = beginningOf(file);
  return contents;
}

}  // namespace

Preview::Preview(RunLoop& loop) : mLoop(loop), mText(new QLabel), mPicture(new QLabel) {
  setProperty("look", "well-muted");
  auto* column = new QVBoxLayout(this);
  const int margin = Look::space(2);
  column->setContentsMargins(margin, margin, margin, margin);
  column->addWidget(mText);
  column->addWidget(mPicture, 0, Qt::AlignHCenter);
  mText->setTextFormat(Qt::PlainText);
  QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  fixed.setPointSizeF(Look::font(Look::Size::small).pointSizeF());
  mText->setFont(fixed);
  // What is too long is cut, not the window enlarged.
  mText->setMinimumSize(1, 3 * QFontMetrics(fixed).lineSpacing());
  mText->setAlignment(Qt::AlignTop | Qt::AlignLeading);
  mText->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  hide();
}

void Preview::show(const QString& path, std::shared_ptr<void> keeps) {
  mWanted.reset();
  hide();
  if (path.isEmpty()) return;
  mWanted = std::make_shared<int>();
  mLoop.detachThread("preview", [this, path, keeps = std::move(keeps),
                                 wanted = std::weak_ptr(mWanted), &loop = mLoop]() mutable {
    auto contents = std::make_shared<Contents>(contentsOf(path));
    keeps.reset();
    loop.performOnMain([this, contents, wanted] {
      if (wanted.expired()) return;
      mPixmap = QPixmap::fromImage(contents->picture);
      mFittedTo = 0;
      mText->setText(contents->text);
      mText->setVisible(!contents->text.isEmpty());
      mPicture->setVisible(!mPixmap.isNull());
      setVisible(!contents->text.isEmpty() || !mPixmap.isNull());
      fit();
    });
  });
}

void Preview::resizeEvent(QResizeEvent* event) {
  QFrame::resizeEvent(event);
  fit();
}

void Preview::fit() {
  if (mPixmap.isNull() || mFittedTo == width()) return;
  mFittedTo = width();
  const QSize room(std::max(16, width() - 2 * Look::space(2)),
                   std::min(Look::space(40), window()->height() / 4));
  QPixmap fitted =
      mPixmap.scaled(room * devicePixelRatioF(), Qt::KeepAspectRatio, Qt::SmoothTransformation);
  fitted.setDevicePixelRatio(devicePixelRatioF());
  mPicture->setPixmap(fitted);
}

}  // namespace corvana
