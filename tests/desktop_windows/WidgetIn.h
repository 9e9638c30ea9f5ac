#pragma once

#include <QAbstractButton>
#include <QString>
#include <QWidget>
#include <stdexcept>
#include <type_traits>

namespace corvana {

/// The first widget of a class in a window, or the one with that accessible name or title; throws
/// when there is none.
template <class T>
T& widgetIn(const QWidget& window, const QString& name) {
  // Qt itself tells only classes of its own apart.
  for (QWidget* widget : window.findChildren<QWidget*>()) {
    T* one = dynamic_cast<T*>(widget);
    if (one == nullptr) continue;
    if (name.isEmpty() || one->accessibleName() == name) return *one;
    if constexpr (std::is_base_of_v<QAbstractButton, T>) {
      if (one->text().remove('&') == name) return *one;
    }
  }
  throw std::runtime_error("not there: " + name.toStdString());
}

}  // namespace corvana
