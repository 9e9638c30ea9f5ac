#pragma once

#include <QColor>
#include <QGuiApplication>
#include <QPalette>

namespace corvana {

// Colours that mean something, readable on the palette's background, light or dark.

inline bool isDark() { return QGuiApplication::palette().color(QPalette::Base).lightness() < 128; }
inline QColor alertColour() { return isDark() ? QColor(255, 138, 128) : QColor(176, 32, 24); }
inline QColor cautionColour() { return isDark() ? QColor(255, 183, 77) : QColor(196, 98, 0); }
inline QColor dimmedColour() {
  QColor colour = QGuiApplication::palette().color(QPalette::Text);
  colour.setAlpha(150);
  return colour;
}

}  // namespace corvana
