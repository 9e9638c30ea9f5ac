#include "desktop/ShortcutField.h"

#include <QtWidgets>
#include <string_view>

#include "desktop/Texts.h"
#include "ui/windows/PreferencesModel.h"

namespace corvana {

namespace {

/// X11 counts keys from eight on.
constexpr unsigned kFirstKey = 8;

}  // namespace

ShortcutField::ShortcutField(Words words)
    : mWords(std::move(words)), mShown(new QLabel), mChange(new QPushButton(mWords.change)) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(mShown, 1);
  layout->addWidget(mChange);
  auto* clear = new QPushButton(mWords.clear);
  layout->addWidget(clear);
  connect(mChange, &QPushButton::clicked, this, [this] { record(!mRecords); });
  connect(clear, &QPushButton::clicked, this, [this] {
    record(false);
    setKeys({});
    if (onChanged) onChanged({});
  });
  mChange->installEventFilter(this);
}

void ShortcutField::setKeys(const ZAN_Value& keys) {
  mKeys = keys;
  if (mRecords) return;
  const std::string shown = mWords.keys(keys);
  mShown->setText(shown.empty() ? mWords.none : qt(shown));
}

void ShortcutField::record(bool on) {
  mRecords = on;
  mDown.fill(0);
  if (on) {
    mShown->setText(mWords.press);
    mChange->setFocus();
  } else {
    setKeys(mKeys);
  }
}

bool ShortcutField::eventFilter(QObject* watched, QEvent* event) {
  if (!mRecords) return QWidget::eventFilter(watched, event);
  if (event->type() == QEvent::FocusOut) record(false);
  const bool pressed = event->type() == QEvent::KeyPress;
  if (event->type() == QEvent::ShortcutOverride) {
    event->accept();
    return true;
  }
  if (!pressed && event->type() != QEvent::KeyRelease) return QWidget::eventFilter(watched, event);
  const auto* key = static_cast<QKeyEvent*>(event);
  const unsigned code = key->nativeScanCode() - kFirstKey;
  if (key->nativeScanCode() < kFirstKey || code >= mDown.size() * 8) return true;
  if (PreferencesModel::isLock(code)) return true;
  if (pressed) {
    mDown[code / 8] = static_cast<std::uint8_t>(mDown[code / 8] | 1U << code % 8);
    return true;
  }
  // Letting go of what was held before the recording began ends nothing.
  if (key->isAutoRepeat() || (mDown[code / 8] >> code % 8 & 1) == 0) return true;
  const ZAN_Value keys =
      ZAN_Value::data(std::string_view(reinterpret_cast<const char*>(mDown.data()), mDown.size()));
  if (!PreferencesModel::isShortcut(keys)) {
    mDown[code / 8] = static_cast<std::uint8_t>(mDown[code / 8] & ~(1U << code % 8));
    if (key->key() == Qt::Key_Escape) record(false);
    return true;
  }
  mKeys = keys;
  record(false);
  if (onChanged) onChanged(keys);
  return true;
}

}  // namespace corvana
