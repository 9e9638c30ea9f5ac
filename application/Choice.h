#pragma once

#include <QButtonGroup>
#include <QRadioButton>
#include <functional>
#include <initializer_list>
#include <vector>

#include "application/Look.h"

class QHBoxLayout;

namespace corvana {

/// One of several sentences to choose from. What can be filled into it stands in its line.
class Choice final : public Card {
 public:
  /// `name` is what it is called where it is read out.
  explicit Choice(const QString& name);

  QHBoxLayout* line() const { return mLine; }
  /// One of our own pictures, and what stands beside it, one below the other.
  void head(const QString& picture, std::initializer_list<QWidget*> words = {});
  /// A part of the sentence; a field in it chooses it when it is used.
  void say(const QString& words);
  void add(QWidget* field, bool isWide = false);
  QRadioButton* button() const { return mButton; }
  bool isChosen() const { return mButton->isChecked(); }

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QHBoxLayout* mLine;
  QRadioButton* mButton;
};

/// The choices of one question, of which one holds.
class Choices final : public QObject {
 public:
  explicit Choices(QObject* parent);

  Choice* add(const QString& name);
  void remove(Choice* choice);
  Choice* chosen() const;
  void choose(Choice* choice);
  const std::vector<Choice*>& all() const { return mAll; }
  /// Another one was chosen.
  std::function<void()> onChosen;

 private:
  QButtonGroup mGroup;
  std::vector<Choice*> mAll;
};

}  // namespace corvana
