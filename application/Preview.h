#pragma once

#include <QFrame>
#include <QLabel>
#include <QPixmap>
#include <memory>

#include "platform/RunLoop.h"

namespace corvana {

/// What is in a file, in small: the first lines of a text, or a picture. It is read on a thread of
/// its own, since the disk may be slow. Thread: main.
class Preview final : public QFrame {
 public:
  explicit Preview(RunLoop& loop);

  /// Shows nothing until it is read; stays hidden for what has nothing to show, and for "".
  /// `keeps` lives until it is read.
  void show(const QString& path, std::shared_ptr<void> keeps = {});

 private:
  void fit();
  void resizeEvent(QResizeEvent* event) override;

  RunLoop& mLoop;
  QLabel* mText;
  QLabel* mPicture;
  QPixmap mPixmap;
  int mFittedTo = 0;             ///< the width that the picture shown is for; 0: for none
  std::shared_ptr<int> mWanted;  ///< gone when something else is wanted
};

}  // namespace corvana
