#pragma once

#include <QTimer>
#include <QWidget>
#include <deque>
#include <map>
#include <string>

#include "application/CommandChild.h"

class QPushButton;
class QVBoxLayout;

namespace corvana {

class Household;
class MachineCard;
class TextLabel;

/// The other machines of the network, each with how it is protected; those that are paired with
/// this one also with how their backups stand. Searches and asks in processes of their own, once a
/// minute and only while it is in sight. What the machines say of themselves is not believed
/// further than it is proven. Thread: main.
class NetworkMachines final : public QWidget {
 public:
  explicit NetworkMachines(Household& household);
  ~NetworkMachines() override;

  /// Nothing but the machines is shown, as long as there are none nothing at all.
  void setQuiet(bool isQuiet);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void search();
  void pair();
  void found(const CommandChild::Ending& ending);
  void note(const QString& text, bool isTrouble);
  void showParts();
  void askNext();

  Household& mHousehold;
  CommandChild mSearch;
  QTimer mAgain;
  bool mIsOld = true;  ///< what is shown is to be asked anew as soon as somebody sees it
  std::map<std::string, MachineCard*, std::less<>> mCards;  ///< by machine and user
  std::deque<std::string> mToAsk;                           ///< of those
  std::int64_t mLimit = 0;  ///< as many were looked at, of more; 0: of all
  bool mIsQuiet = false;
  QWidget* mHead;
  TextLabel* mNote;
  QPushButton* mLook;
  QVBoxLayout* mList;
};

}  // namespace corvana
