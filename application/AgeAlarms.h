#pragma once

#include "application/Look.h"

class QTreeWidget;
class QTreeWidgetItem;

namespace corvana {

class Household;
class ProgrammedAction;

/// The age alarms of all backups at a glance: which of them are told of when they have had no
/// success for long, how long that is, and when they had. Thread: main.
class AgeAlarms final : public Card {
 public:
  explicit AgeAlarms(Household& household);

  /// Reads them anew, unless one is being edited.
  void load();

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void fill(QTreeWidgetItem& row, const ProgrammedAction& action);
  void change(const QTreeWidgetItem& row, int column);

  Household& mHousehold;
  TextLabel* mSentence;
  TextLabel* mTrouble;
  QTreeWidget* mList;
};

}  // namespace corvana
