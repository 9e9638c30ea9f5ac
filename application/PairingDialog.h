#pragma once

#include <QDialog>
#include <QTimer>
#include <functional>

#include "application/CommandChild.h"
#include "application/Look.h"

class QStackedWidget;
class QVBoxLayout;

namespace corvana {

class Household;

/// Has this machine and another one know each other: lets one come, or goes to one that waits; then
/// both show six digits, which the user compares. Thread: main.
class PairingDialog final : public QDialog {
 public:
  /// One that goes when it is closed; `paired` hears that there is another machine.
  static void open(Household& household, QWidget* parent, std::function<void()> paired);

 private:
  PairingDialog(Household& household, QWidget* parent, std::function<void()> paired);
  QWidget* beginPage();
  QWidget* waitPage();
  QWidget* digitsPage();
  QWidget* endPage();
  void begin();
  void look();
  void found(const CommandChild::Ending& ending);
  void pair(const QStringList& words, const QString& text);
  void heard(const ZAN_Value& news);
  void answer(bool isSame);
  void ended(const CommandChild::Ending& ending);

  Household& mHousehold;
  const std::function<void()> mPaired;
  CommandChild mLookChild;
  CommandChild mPairChild;
  QTimer mLookAgain;
  QStackedWidget* mStack;
  QVBoxLayout* mWaiting = nullptr;
  TextLabel* mNobody = nullptr;
  TextLabel* mWaitText = nullptr;
  TextLabel* mQuestion = nullptr;
  QLabel* mDigits = nullptr;
  TextLabel* mWhich = nullptr;
  QPushButton* mDiffer = nullptr;
  TextLabel* mEndTitle = nullptr;
  TextLabel* mEndText = nullptr;
  QPushButton* mRetry = nullptr;
};

/// The machines that are paired with this one, to be named and forgotten, and how one more comes to
/// them. Thread: main.
class PairedComputers final : public Card {
 public:
  explicit PairedComputers(Household& household);

  /// Shows anew who they are.
  void load();

 private:
  void fill(const CommandChild::Ending& ending);
  void rename(const QString& sender, const QString& name);
  void forget(const QString& sender, const QString& name);
  void change(const QStringList& words);

  Household& mHousehold;
  CommandChild mChild;
  QVBoxLayout* mList;
  TextLabel* mTrouble;
};

}  // namespace corvana
