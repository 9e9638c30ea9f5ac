#pragma once

#include <QFrame>
#include <functional>

#include "application/Look.h"

namespace corvana {

/// One sentence across a page, in words and colour, with the button that does something about it.
class Banner final : public QFrame {
 public:
  explicit Banner(QWidget* parent = nullptr);

  /// `text` may be empty; without the words for a button there is none.
  void say(Look::Meaning meaning, const QString& title, const QString& text,
           const QString& button = {}, std::function<void()> pressed = {});

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void drawMark();

  Look::Meaning mMeaning = Look::Meaning::good;
  QLabel* mMark;
  TextLabel* mTitle;
  TextLabel* mText;
  QPushButton* mButton;
  std::function<void()> mPressed;
};

}  // namespace corvana
