#pragma once

#include <QString>

#include "desktop/FloatingWidget.h"

namespace corvana {

/// The strip with the title of the running action and how far it is. Thread: main.
class AnnounceView final : public FloatingWidget {
 public:
  AnnounceView(bool composed, const QString& title);

  void setProgress(double percent, const QString& text);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString mTitle;
  QString mText = QStringLiteral("0");
  double mPercent = 0;
};

}  // namespace corvana
