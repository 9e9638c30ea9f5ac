#pragma once

#include <functional>
#include <vector>

#include "application/Choice.h"
#include "application/Household.h"
#include "command/ScheduleWords.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;
class QTimeEdit;
class QVBoxLayout;

namespace corvana {

/// When a backup runs, as a sentence, with the dates that come of it; and how long older versions
/// are kept. What a record says of its schedule beyond these sentences stays as long as no other
/// one is chosen.
class WhenStep final : public QWidget {
 public:
  explicit WhenStep(Household& household);

  void begin();
  void show(const ZAN_Value& settings);
  /// The disk in the sentence that names it; empty: a folder.
  void setVolume(const QString& volume);

  /// Writes what was chosen into the record.
  void applyTo(ZAN_Value& record) const;
  std::function<void()> onChange;

 private:
  QTimeEdit* timeField(int hour, int minute);
  void buildUsual();
  void buildMore();
  void buildBelow(QVBoxLayout* column);
  void setMore(bool isShown);
  SchedulePlan plan() const;
  void changed();
  void showDates();

  Household& mHousehold;
  ZAN_Value mSettings = ZAN_Value::dictionary();  ///< of the record that is shown
  Choices mChoices;
  QVBoxLayout* mUsual;
  QWidget* mMore;
  QPushButton* mMoreButton;
  Choice* mAsItIs;
  TextLabel* mAsItIsText;
  Choice* mDaily;
  QTimeEdit* mDailyTime = nullptr;
  Choice* mWeekly;
  std::vector<QPushButton*> mWeekdays;  ///< in the order of the region, with "weekday"
  QTimeEdit* mWeeklyTime = nullptr;
  Choice* mMounted;
  TextLabel* mMountedText;
  Choice* mIdle;
  QSpinBox* mIdleMinutes = nullptr;
  Choice* mEvery;
  QSpinBox* mEveryCount = nullptr;
  QComboBox* mEveryUnit = nullptr;
  Choice* mMonthly;
  QComboBox* mMonthDay = nullptr;
  QTimeEdit* mMonthlyTime = nullptr;
  Choice* mYearly;
  QSpinBox* mYearDay = nullptr;
  QComboBox* mYearMonth = nullptr;
  QTimeEdit* mYearlyTime = nullptr;
  Choice* mHourly;
  QComboBox* mHourlyKind = nullptr;
  Choice* mStartUp;
  QComboBox* mStartUpKind = nullptr;
  Choice* mShutDown;
  Choice* mQuit;
  QLineEdit* mApplication = nullptr;
  Choice* mManual;
  QCheckBox* mHours;
  QTimeEdit* mFrom;
  QTimeEdit* mTo;
  TextLabel* mDates;
  TextLabel* mNever;
  QComboBox* mKeep;
  bool mIsFilling = false;
};

}  // namespace corvana
