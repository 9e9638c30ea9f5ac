#pragma once

#include <QBoxLayout>
#include <QFontMetrics>
#include <QLabel>
#include <QPushButton>
#include <QString>

namespace corvana {

// What the windows are put together from. Sizes follow the font.

/// A button of a row at the bottom of a window; Return belongs to the list, not to it.
template <class Pressed>
QPushButton* addButton(QBoxLayout* row, const QString& text, Pressed pressed) {
  auto* button = new QPushButton(text);
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
  return label;
}

inline void resizeByFont(QWidget* window, int columns, int rows) {
  const QFontMetrics metrics(window->font());
  window->resize(columns * metrics.averageCharWidth(), rows * metrics.lineSpacing());
}

}  // namespace corvana
