#include "application/ProgressStrip.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QProgressBar>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "application/Household.h"

namespace corvana {

namespace {

constexpr int kParts = 1000;

}  // namespace

void showFolder(const QString& path) {
  if (!path.isEmpty()) QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

ProgressStrip::ProgressStrip(Household& household)
    : mTitle(new TextLabel({}, Look::Size::strong)),
      mText(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mProgress(new QProgressBar),
      mStop(makeButton(household.text("RestoreStop"), [this] { onStop(); })),
      mShow(makeButton(household.text("RestoreShow"), [this] { showFolder(mFolder); })),
      mClose(makeButton(household.text("CloseButton"), [this] { hide(); })) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(4), Look::space(3), Look::space(4), Look::space(3));
  column->setSpacing(Look::space(1));
  auto* row = new QHBoxLayout;
  row->setSpacing(Look::space(3));
  auto* words = new QVBoxLayout;
  words->setSpacing(Look::space(1));
  words->addWidget(mTitle);
  words->addWidget(mText);
  row->addLayout(words, 1);
  mClose->setFlat(true);
  for (QPushButton* button : {mStop, mShow, mClose}) row->addWidget(button);
  column->addLayout(row);
  mProgress->setTextVisible(false);
  mProgress->setAccessibleName(household.text("RestoreProgress"));
  column->addWidget(mProgress);
  hide();
}

void ProgressStrip::say(const char* look, const QString& title, const QString& text, bool goesOn) {
  Look::set(this, look);
  mTitle->setText(title);
  mText->setText(text);
  mText->setVisible(!text.isEmpty());
  mProgress->setVisible(goesOn);
  mStop->setVisible(goesOn);
  mShow->setVisible(!goesOn && !mFolder.isEmpty());
  mClose->setVisible(!goesOn);
  show();
}

void ProgressStrip::begin(const QString& title) {
  mProgress->setRange(0, 0);
  say("well-accent", title, {}, true);
}

void ProgressStrip::goOn(const QString& text, double part) {
  mProgress->setRange(0, kParts);
  mProgress->setValue(static_cast<int>(std::clamp(part, 0.0, 1.0) * kParts));
  wait(text);
}

void ProgressStrip::wait(const QString& text) {
  mText->setText(text);
  mText->setVisible(!text.isEmpty());
}

void ProgressStrip::end(bool isGood, const QString& title, const QString& text,
                        const QString& folder) {
  mFolder = folder;
  say(isGood ? "well-good" : "well-bad", title, text, false);
}

}  // namespace corvana
