#pragma once

#include <QImage>
#include <QString>

#include "desktop/FloatingWidget.h"

namespace corvana {

/// A message above all windows, which clicks go through. Thread: main.
class MessageView final : public FloatingWidget {
 public:
  struct Look {
    int colour = 0;  ///< number of a predefined colour
    double opacity = 1;
    QImage icon;
    double widest = 0;  ///< of the window
  };

  MessageView(bool composed, const QString& title, const QString& text, const Look& look);

  void setColour(int colour, double opacity);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString mTitle;
  QString mText;
  Look mLook;
  QFont mTitleFont;
  QFont mTextFont;
  int mTitleHeight = 0;
  int mTitleWrap = 0;  ///< flags of Qt
  int mTextWrap = 0;
};

/// The button that closes a message, a window of its own. Thread: main.
class MessageCloseView final : public FloatingWidget {
 public:
  MessageCloseView(bool composed, const QString& name);
  std::function<void()> onClicked;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
};

}  // namespace corvana
