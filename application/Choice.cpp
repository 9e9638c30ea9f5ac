#include "application/Choice.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QVBoxLayout>
#include <algorithm>

namespace corvana {

Choice::Choice(const QString& name) : mLine(new QHBoxLayout), mButton(new QRadioButton) {
  const int margin = Look::space(3);
  column()->setContentsMargins(margin, margin - Look::space(1), margin, margin - Look::space(1));
  mLine->setSpacing(Look::space(2));
  mLine->addWidget(mButton);
  mLine->addStretch(1);
  column()->addLayout(mLine);
  mButton->setAccessibleName(name);
  setMinimumHeight(Look::space(12));
  QObject::connect(mButton, &QRadioButton::toggled, this, [this](bool isChosen) {
    setMeaning(isChosen ? Look::Meaning::accent : Look::Meaning::plain);
  });
}

void Choice::say(const QString& words) {
  if (words.isEmpty()) return;
  auto* label = new TextLabel(words);
  label->setWordWrap(false);
  mLine->insertWidget(mLine->count() - 1, label);
}

void Choice::head(const QString& picture, std::initializer_list<QWidget*> words) {
  auto* mark = new QLabel;
  mark->setPixmap(Look::picture(picture, Look::space(7), Look::Meaning::accent));
  mLine->insertWidget(mLine->count() - 1, mark);
  if (words.size() == 0) return;
  auto* column = new QVBoxLayout;
  column->setSpacing(0);
  for (QWidget* one : words) column->addWidget(one);
  mLine->insertLayout(mLine->count() - 1, column, 1);
  mLine->setStretch(mLine->count() - 1, 0);
}

void Choice::add(QWidget* field, bool isWide) {
  mLine->insertWidget(mLine->count() - 1, field, isWide ? 1 : 0);
  if (isWide) mLine->setStretch(mLine->count() - 1, 0);
  field->installEventFilter(this);
}

void Choice::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) {
    mButton->setChecked(true);
    mButton->setFocus();
  }
  Card::mousePressEvent(event);
}

bool Choice::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::FocusIn) mButton->setChecked(true);
  return Card::eventFilter(watched, event);
}

Choices::Choices(QObject* parent) : QObject(parent) {
  QObject::connect(&mGroup, &QButtonGroup::buttonToggled, this,
                   [this](QAbstractButton*, bool isChosen) {
                     if (isChosen && onChosen) onChosen();
                   });
}

Choice* Choices::add(const QString& name) {
  auto* choice = new Choice(name);
  mGroup.addButton(choice->button());
  mAll.push_back(choice);
  return choice;
}

void Choices::remove(Choice* choice) {
  mGroup.removeButton(choice->button());
  std::erase(mAll, choice);
  delete choice;
}

Choice* Choices::chosen() const {
  const auto found = std::ranges::find_if(mAll, &Choice::isChosen);
  return found == mAll.end() ? nullptr : *found;
}

void Choices::choose(Choice* choice) {
  if (choice != nullptr) choice->button()->setChecked(true);
}

}  // namespace corvana
