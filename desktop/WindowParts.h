#pragma once

#include <QtWidgets>

#include "desktop/Texts.h"

namespace corvana {

// What the windows are put together from. Sizes follow the font.

/// Its text does not touch its border, which styles allow.
class RoomyButton final : public QPushButton {
 public:
  using QPushButton::QPushButton;
  QSize sizeHint() const override {
    return QPushButton::sizeHint() + QSize(2 * fontMetrics().averageCharWidth(), 0);
  }
  QSize minimumSizeHint() const override { return sizeHint(); }
};

/// A button of a row at the bottom of a window; Return belongs to the list, not to it.
template <class Pressed>
QPushButton* addButton(QBoxLayout* row, const QString& text, Pressed pressed) {
  auto* button = new RoomyButton(text);
  button->setAutoDefault(false);
  QObject::connect(button, &QPushButton::clicked, button, pressed);
  row->addWidget(button);
  return button;
}

/// A line of text that wraps and can be selected and read out, not formatted.
inline QLabel* makeLabel(const QString& text = {}) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  // One that can be selected goes by the letters; a title of another script is to stand with ours.
  if (QGuiApplication::isRightToLeft()) {
    label->setAlignment(Qt::AlignRight | Qt::AlignAbsolute | Qt::AlignVCenter);
  }
  return label;
}

/// A tool tip that shows a text as it is, even one that looks like markup.
inline QString plainToolTip(const QString& text) {
  if (!Qt::mightBeRichText(text)) return text;
  return QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped().replace('\n', "<br>"));
}

/// Lets the wheel pass on to what scrolls while the field has not got the keyboard.
class WheelPasses final : public QObject {
 public:
  using QObject::QObject;
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() != QEvent::Wheel || static_cast<QWidget*>(watched)->hasFocus()) return false;
    event->ignore();
    return true;
  }
};

/// Whoever scrolls past this field is not to change it.
inline void leaveToWheelOnlyWithFocus(QWidget* field) {
  field->setFocusPolicy(Qt::StrongFocus);
  field->installEventFilter(new WheelPasses(field));
}

// Colours that mean something, readable on the palette's background, light or dark.

inline bool isDark() { return QGuiApplication::palette().color(QPalette::Base).lightness() < 128; }
inline QColor alertColour() { return isDark() ? QColor(255, 138, 128) : QColor(176, 32, 24); }
inline QColor cautionColour() { return isDark() ? QColor(255, 183, 77) : QColor(196, 98, 0); }
inline QColor dimmedColour() {
  QColor colour = QGuiApplication::palette().color(QPalette::Text);
  colour.setAlpha(150);
  return colour;
}

inline void resizeByFont(QWidget* window, int columns, int rows) {
  const QFontMetrics metrics(window->font());
  window->resize(columns * metrics.averageCharWidth(), rows * metrics.lineSpacing());
}

}  // namespace corvana
