#pragma once

#include <QFrame>
#include <functional>

#include "application/Look.h"

class QProgressBar;

namespace corvana {

class Household;

/// A line across a page: how far something is that was asked for, and in the end what has come of
/// it. Hidden until then, and when the user closes it. Thread: main.
class ProgressStrip final : public QFrame {
 public:
  explicit ProgressStrip(Household& household);

  void begin(const QString& title);
  /// `part` of the whole, from 0 to 1.
  void goOn(const QString& text, double part);
  /// It waits for that.
  void wait(const QString& text);
  /// `folder`: what there is to be shown now; empty: nothing.
  void end(bool isGood, const QString& title, const QString& text, const QString& folder);

  std::function<void()> onStop;

 private:
  void say(const char* look, const QString& title, const QString& text, bool goesOn);

  TextLabel* mTitle;
  TextLabel* mText;
  QProgressBar* mProgress;
  QPushButton* mStop;
  QPushButton* mShow;
  QPushButton* mClose;
  QString mFolder;
};

/// In the desktop's file manager; nothing for "".
void showFolder(const QString& path);

}  // namespace corvana
