#pragma once

#include <QImage>
#include <QList>
#include <QRect>
#include <QString>
#include <memory>

namespace corvana {

/// An X server of the test, looked at and changed from outside as its other clients do. Thread:
/// main.
class TestScreen {
 public:
  struct Shown {
    QString title;
    QRect place;
  };

  explicit TestScreen(const QByteArray& display);
  TestScreen(const TestScreen&) = delete;
  TestScreen& operator=(const TestScreen&) = delete;
  ~TestScreen();

  /// The windows that are up, lowest first.
  QList<Shown> windows() const;
  /// The topmost one whose title begins so; an empty place without one.
  Shown window(const QString& title) const;
  QRect bounds() const;
  QImage picture(const QRect& place) const;

  /// What panels leave of the screen.
  void setWorkArea(const QRect& area);
  /// Becomes the panel that takes icons as windows, at that place.
  void becomeTray(const QRect& place);
  /// Takes the icon that has asked for a place; whether one has it.
  bool takeIcon();

 private:
  class Connection;
  std::unique_ptr<Connection> mConnection;
};

}  // namespace corvana
