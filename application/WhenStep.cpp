#include "application/WhenStep.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLocale>
#include <QSpinBox>
#include <QTimeEdit>
#include <QVBoxLayout>
#include <algorithm>

#include "actions/RecordKeys.h"
#include "actions/ScheduleSentence.h"
#include "application/BackupFacts.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kDates = 5;
constexpr int kDaysAWeek = 7;
constexpr int kMonths = 12;
constexpr int kMinutesAnHour = 60;
constexpr int kEvening = 20;
constexpr std::int64_t kMonthOfDays = 30;
constexpr std::int64_t kQuarterOfDays = 90;
constexpr std::int64_t kYearOfDays = 366;
/// What "keep" has for data: days, or one of these.
constexpr std::int64_t kAll = 0;
constexpr std::int64_t kNone = -1;
constexpr std::int64_t kAsItWas = -2;

/// Days of a month: the numbers themselves, else a mode behind these.
constexpr int kModes = 100;
/// ... and this many times the weekday that goes with them.
constexpr int kWeekdays = 1000;

int secondsOf(const QTimeEdit* field) { return field->time().msecsSinceStartOfDay() / 1000; }

}  // namespace

WhenStep::WhenStep(Household& household)
    : mHousehold(household),
      mChoices(this),
      mUsual(new QVBoxLayout),
      mMore(new QWidget),
      mMoreButton(makeButton(household.text("WhenMore"), [this] { setMore(true); })),
      mAsItIs(mChoices.add(household.text("WhenAsItIs"))),
      mAsItIsText(new TextLabel),
      mDaily(mChoices.add(household.text("WhenDailyName"))),
      mWeekly(mChoices.add(household.text("WhenWeeklyName"))),
      mMounted(mChoices.add(household.text("WhenMountedName"))),
      mMountedText(new TextLabel),
      mIdle(mChoices.add(household.text("WhenIdleName"))),
      mEvery(mChoices.add(household.text("WhenEveryName"))),
      mMonthly(mChoices.add(household.text("WhenMonthlyName"))),
      mYearly(mChoices.add(household.text("WhenYearlyName"))),
      mHourly(mChoices.add(household.text("WhenHourlyName"))),
      mStartUp(mChoices.add(household.text("WhenStartUpName"))),
      mShutDown(mChoices.add(household.text("WhenShutDown"))),
      mQuit(mChoices.add(household.text("WhenQuitName"))),
      mManual(mChoices.add(household.text("WhenManual"))),
      mHours(new QCheckBox(household.text("WhenHours"))),
      mFrom(timeField(8, 0)),
      mTo(timeField(18, 0)),
      mDates(new TextLabel),
      mNever(new TextLabel({}, Look::Size::body, Look::Meaning::bad)),
      mKeep(new QComboBox) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  mUsual->setSpacing(Look::space(2));
  column->addLayout(mUsual);
  buildUsual();
  mMoreButton->setFlat(true);
  column->addWidget(mMoreButton, 0, Qt::AlignLeft);
  column->addWidget(mMore);
  buildMore();
  buildBelow(column);
  mChoices.onChosen = [this] { changed(); };
}

QTimeEdit* WhenStep::timeField(int hour, int minute) {
  auto* field = new QTimeEdit(QTime(hour, minute));
  field->setDisplayFormat(
      QLocale().timeFormat(QLocale::ShortFormat).contains('a', Qt::CaseInsensitive)
          ? QStringLiteral("h:mm ap")
          : QStringLiteral("HH:mm"));
  field->setAccessibleName(mHousehold.text("WhenTime"));
  field->setButtonSymbols(QAbstractSpinBox::NoButtons);
  QObject::connect(field, &QTimeEdit::timeChanged, this, [this] { changed(); });
  return field;
}

void WhenStep::buildUsual() {
  for (Choice* choice : {mAsItIs, mDaily, mWeekly, mMounted, mIdle}) mUsual->addWidget(choice);
  mAsItIs->line()->insertWidget(1, mAsItIsText, 1);

  mDailyTime = timeField(kEvening, 0);
  mDaily->say(mHousehold.text("WhenDaily"));
  mDaily->add(mDailyTime);

  mWeekly->say(mHousehold.text("WhenWeekly"));
  const QLocale locale;
  const int first = locale.firstDayOfWeek();
  for (int i = 0; i < kDaysAWeek; ++i) {
    const int day = (first - 1 + i) % kDaysAWeek + 1;  // 1 = Monday
    const int weekday = day % kDaysAWeek + 1;          // 1 = Sunday
    const QString name = qt(mHousehold.calendar().weekdayName(weekday));
    auto* button = makeButton(name.left(2), [this] { changed(); });
    button->setCheckable(true);
    button->setProperty("look", "toggle");
    button->setProperty("weekday", weekday);
    button->setAccessibleName(name);
    button->setToolTip(name);
    button->setChecked(day == 1 || day == 4);
    mWeekdays.push_back(button);
    mWeekly->add(button);
  }
  mWeeklyTime = timeField(18, 30);
  mWeekly->say(mHousehold.text("WhenAt"));
  mWeekly->add(mWeeklyTime);

  mMountedText->setWordWrap(false);
  mMounted->add(mMountedText);

  mIdleMinutes = new QSpinBox;
  mIdleMinutes->setRange(1, 24 * kMinutesAnHour);
  mIdleMinutes->setValue(10);
  mIdleMinutes->setButtonSymbols(QAbstractSpinBox::NoButtons);
  mIdleMinutes->setAccessibleName(mHousehold.text("WhenIdleUnit"));
  mIdle->say(mHousehold.text("WhenIdle"));
  mIdle->add(mIdleMinutes);
  mIdle->say(mHousehold.text("WhenIdleUnit"));
  QObject::connect(mIdleMinutes, &QSpinBox::valueChanged, this, [this] { changed(); });
}

void WhenStep::buildMore() {
  auto* column = new QVBoxLayout(mMore);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  for (Choice* choice : {mEvery, mHourly, mMonthly, mYearly, mStartUp, mShutDown, mQuit, mManual})
    column->addWidget(choice);

  mEveryCount = new QSpinBox;
  mEveryCount->setRange(1, 999);
  mEveryCount->setValue(4);
  mEveryCount->setButtonSymbols(QAbstractSpinBox::NoButtons);
  mEveryCount->setAccessibleName(mHousehold.text("WhenEveryName"));
  mEveryUnit = new QComboBox;
  mEveryUnit->addItem(mHousehold.text("WhenHoursUnit"), kMinutesAnHour);
  mEveryUnit->addItem(mHousehold.text("WhenMinutesUnit"), 1);
  mEveryUnit->setAccessibleName(mHousehold.text("WhenEveryName"));
  mEvery->say(mHousehold.text("WhenEvery"));
  mEvery->add(mEveryCount);
  mEvery->add(mEveryUnit);
  QObject::connect(mEveryCount, &QSpinBox::valueChanged, this, [this] { changed(); });
  QObject::connect(mEveryUnit, &QComboBox::currentIndexChanged, this, [this] { changed(); });

  const auto occasions = [this](Choice* choice, const char* name,
                                std::initializer_list<std::pair<const char*, ScheduleKind>> kinds) {
    auto* box = new QComboBox;
    for (const auto& [words, kind] : kinds)
      box->addItem(mHousehold.text(words), static_cast<int>(kind));
    box->setAccessibleName(mHousehold.text(name));
    choice->add(box);
    QObject::connect(box, &QComboBox::currentIndexChanged, this, [this] { changed(); });
    return box;
  };
  mHourlyKind = occasions(
      mHourly, "WhenHourlyName",
      {{"WhenHourly", ScheduleKind::hourly}, {"WhenThreeHourly", ScheduleKind::threeHourly}});
  mStartUpKind = occasions(mStartUp, "WhenStartUpName",
                           {{"WhenStartUp", ScheduleKind::startUp},
                            {"WhenFirstStartUp", ScheduleKind::firstStartUpOfDay},
                            {"WhenNextDay", ScheduleKind::nextDay}});

  using Mode = ScheduleEntry::MonthMode;
  const auto mode = [](Mode one) { return kModes + static_cast<int>(one); };
  mMonthDay = new QComboBox;
  mMonthDay->addItem(mHousehold.text("WhenFirstDay"), mode(Mode::firstDay));
  mMonthDay->addItem(mHousehold.text("WhenFirstWorkingDay"), mode(Mode::firstWorkingDay));
  mMonthDay->addItem(mHousehold.text("WhenLastWorkingDay"), mode(Mode::lastWorkingDay));
  mMonthDay->addItem(mHousehold.text("WhenLastDay"), mode(Mode::lastDay));
  for (int day = 2; day <= 31; ++day)
    mMonthDay->addItem(mHousehold.text("WhenMonthDay", {day}), day);
  for (const auto& [key, which] : {std::pair("WhenFirstOf", Mode::firstWeekday),
                                   {"WhenSecondOf", Mode::secondWeekday},
                                   {"WhenLastOf", Mode::lastWeekday}})
    for (const QPushButton* day : mWeekdays)
      mMonthDay->addItem(mHousehold.text(key, {utf8(day->accessibleName())}),
                         mode(which) + kWeekdays * day->property("weekday").toInt());
  mMonthDay->setAccessibleName(mHousehold.text("WhenMonthlyName"));
  mMonthlyTime = timeField(12, 0);
  mMonthly->say(mHousehold.text("WhenMonthly"));
  mMonthly->add(mMonthDay);
  mMonthly->say(mHousehold.text("WhenMonthlyAt"));
  mMonthly->add(mMonthlyTime);
  QObject::connect(mMonthDay, &QComboBox::currentIndexChanged, this, [this] { changed(); });

  mYearDay = new QSpinBox;
  mYearDay->setRange(1, 31);
  mYearDay->setButtonSymbols(QAbstractSpinBox::NoButtons);
  mYearDay->setAccessibleName(mHousehold.text("WhenDayName"));
  mYearMonth = new QComboBox;
  for (int month = 1; month <= kMonths; ++month)
    mYearMonth->addItem(QLocale(mHousehold.text("LanguageCode")).standaloneMonthName(month), month);
  mYearMonth->setAccessibleName(mHousehold.text("WhenMonthName"));
  mYearlyTime = timeField(12, 0);
  mYearly->say(mHousehold.text("WhenYearly"));
  mYearly->add(mYearDay);
  mYearly->add(mYearMonth);
  mYearly->say(mHousehold.text("WhenAt"));
  mYearly->add(mYearlyTime);
  QObject::connect(mYearDay, &QSpinBox::valueChanged, this, [this] { changed(); });
  QObject::connect(mYearMonth, &QComboBox::currentIndexChanged, this, [this] { changed(); });

  mShutDown->say(mHousehold.text("WhenShutDown"));
  mApplication = new QLineEdit;
  mApplication->setAccessibleName(mHousehold.text("WhenApplication"));
  mApplication->setPlaceholderText(mHousehold.text("WhenApplication"));
  mQuit->say(mHousehold.text("WhenQuit"));
  mQuit->add(mApplication);
  mQuit->say(mHousehold.text("WhenQuitEnd"));
  QObject::connect(mApplication, &QLineEdit::textChanged, this, [this] { changed(); });
  mManual->say(mHousehold.text("WhenManual"));
}

void WhenStep::buildBelow(QVBoxLayout* column) {
  auto* hours = new QHBoxLayout;
  hours->setSpacing(Look::space(2));
  hours->addWidget(mHours);
  hours->addWidget(mFrom);
  auto* conjunction = new TextLabel(mHousehold.text("WhenHoursAnd"));
  conjunction->setWordWrap(false);
  hours->addWidget(conjunction);
  hours->addWidget(mTo);
  hours->addStretch(1);
  column->addLayout(hours);
  QObject::connect(mHours, &QCheckBox::toggled, this, [this] { changed(); });

  mKeep->addItem(mHousehold.text("KeepAll"), QVariant::fromValue<qlonglong>(kAll));
  mKeep->addItem(mHousehold.text("KeepYear"), QVariant::fromValue<qlonglong>(kYearOfDays));
  mKeep->addItem(mHousehold.text("KeepQuarter"), QVariant::fromValue<qlonglong>(kQuarterOfDays));
  mKeep->addItem(mHousehold.text("KeepMonth"), QVariant::fromValue<qlonglong>(kMonthOfDays));
  mKeep->addItem(mHousehold.text("KeepNone"), QVariant::fromValue<qlonglong>(kNone));
  mKeep->setAccessibleName(mHousehold.text("KeepTitle"));

  auto* below = new QHBoxLayout;
  below->setContentsMargins(0, Look::space(3), 0, 0);
  below->setSpacing(Look::space(10));
  const auto part = [below](const QString& title, std::initializer_list<QWidget*> widgets,
                            int wide) {
    auto* part = new QVBoxLayout;
    part->setSpacing(Look::space(1));
    part->addWidget(new TextLabel(title, Look::Size::body, Look::Meaning::muted));
    for (QWidget* widget : widgets) part->addWidget(widget);
    part->addStretch(1);
    below->addLayout(part, wide);
  };
  part(mHousehold.text("WhenItRuns"), {mDates, mNever}, 2);
  part(mHousehold.text("KeepTitle"),
       {mKeep,
        new TextLabel(mHousehold.text("WhenMissed"), Look::Size::small, Look::Meaning::muted)},
       3);
  column->addLayout(below);
}

void WhenStep::setMore(bool isShown) {
  mMore->setVisible(isShown);
  mMoreButton->setVisible(!isShown);
}

void WhenStep::begin() {
  mIsFilling = true;
  mSettings = ZAN_Value::dictionary();
  mAsItIs->hide();
  setMore(false);
  mHours->setChecked(false);
  mKeep->setCurrentIndex(0);
  mChoices.choose(mDaily);
  mIsFilling = false;
  changed();
}

void WhenStep::show(const ZAN_Value& settings) {
  mIsFilling = true;
  mSettings = settings;
  const ScheduleSentence sentence(mHousehold.calendar(), mHousehold.texts(), mHousehold.strings());
  mAsItIsText->setText(qt(sentence.inWindow(settings)));
  mAsItIs->button()->setAccessibleName(mAsItIsText->text());
  mAsItIs->show();
  setMore(false);
  const Schedule schedule(settings);
  const auto timeOf = [this](ReferenceTime stored) {
    return QTime::fromMSecsSinceStartOfDay(mHousehold.calendar().secondsInDay(stored) * 1000);
  };
  mHours->setChecked(schedule.hasAllowedHours);
  if (schedule.allowedFrom) mFrom->setTime(timeOf(*schedule.allowedFrom));
  if (schedule.allowedTo) mTo->setTime(timeOf(*schedule.allowedTo));
  if (schedule.kind == ScheduleKind::daily && schedule.time)
    mDailyTime->setTime(timeOf(*schedule.time));
  const std::int64_t days = settings.integer(VersionKey::days);
  const std::int64_t kept = settings.integer(VersionKey::none) != 0    ? kNone
                            : settings.integer(VersionKey::bytes) != 0 ? kAsItWas
                                                                       : days;
  if (const int odd = mKeep->findData(QVariant::fromValue<qlonglong>(kAsItWas)); odd >= 0)
    mKeep->removeItem(odd);
  int row = mKeep->findData(QVariant::fromValue<qlonglong>(kept));
  if (row < 0) {
    mKeep->addItem(mHousehold.text("KeepAsItWas"), QVariant::fromValue<qlonglong>(kAsItWas));
    row = mKeep->count() - 1;
  }
  mKeep->setCurrentIndex(row);
  mChoices.choose(mAsItIs);
  mIsFilling = false;
  changed();
}

void WhenStep::setVolume(const QString& volume) {
  mMountedText->setText(volume.isEmpty() ? mHousehold.text("WhenMountedAny")
                                         : mHousehold.text("WhenMounted", {utf8(volume)}));
}

SchedulePlan WhenStep::plan() const {
  SchedulePlan plan;
  const Choice* chosen = mChoices.chosen();
  if (chosen == mDaily) plan.daily = {secondsOf(mDailyTime)};
  if (chosen == mWeekly) {
    std::vector<int> days;
    for (const QPushButton* button : mWeekdays)
      if (button->isChecked()) days.push_back(button->property("weekday").toInt());
    plan.entries = {SchedulePlan::weekly(days)};
    plan.at = secondsOf(mWeeklyTime);
  }
  if (chosen == mMounted) plan.kind = ScheduleKind::volumeMounted;
  if (chosen == mIdle) {
    plan.kind = ScheduleKind::idle;
    plan.minutes = mIdleMinutes->value();
  }
  if (chosen == mEvery) {
    plan.kind = ScheduleKind::minutes;
    plan.minutes =
        static_cast<std::int64_t>(mEveryCount->value()) * mEveryUnit->currentData().toInt();
  }
  if (chosen == mMonthly) {
    const int day = mMonthDay->currentData().toInt();
    plan.entries = {day < kModes ? SchedulePlan::monthly(std::to_string(day))
                                 : SchedulePlan::monthly(static_cast<ScheduleEntry::MonthMode>(
                                                             day % kWeekdays - kModes),
                                                         day / kWeekdays)};
    plan.at = secondsOf(mMonthlyTime);
  }
  if (chosen == mYearly) {
    plan.entries = {SchedulePlan::yearly(mYearDay->value(), mYearMonth->currentData().toInt())};
    plan.at = secondsOf(mYearlyTime);
  }
  for (const auto& [choice, box] : {std::pair(mHourly, mHourlyKind), {mStartUp, mStartUpKind}})
    if (chosen == choice) plan.kind = static_cast<ScheduleKind>(box->currentData().toInt());
  if (chosen == mShutDown) plan.atShutDown = true;
  if (chosen == mQuit) {
    plan.kind = ScheduleKind::applicationQuit;
    plan.application = utf8(mApplication->text());
  }
  if (chosen == mManual) plan.isManual = true;
  const Schedule before(mSettings);
  if (mHours->isChecked()) {
    plan.hours = SchedulePlan::Hours{.from = secondsOf(mFrom), .to = secondsOf(mTo)};
  } else if (before.hasAllowedHours) {
    plan.hours = SchedulePlan::Hours{.isAny = true};
  }
  if (plan.hours && !plan.saysWhen() && mHours->isChecked() && before.hasAllowedHours) {
    // The same hours as before are no edit of the schedule.
    const auto same = [this](const std::optional<ReferenceTime>& stored, int seconds) {
      return stored && mHousehold.calendar().secondsInDay(*stored) == seconds;
    };
    if (same(before.allowedFrom, plan.hours->from) && same(before.allowedTo, plan.hours->to))
      plan.hours.reset();
  }
  return plan;
}

void WhenStep::applyTo(ZAN_Value& record) const {
  plan().applyTo(record, mHousehold.calendar(), mHousehold.now());
  const std::int64_t kept = mKeep->currentData().toLongLong();
  if (kept == kAsItWas) return;
  record.setValue(VersionKey::none, kept == kNone ? 1 : 0);
  record.setValue(VersionKey::days, std::max<std::int64_t>(kept, 0));
  record.setValue(VersionKey::bytes, 0);
}

void WhenStep::changed() {
  if (mIsFilling) return;
  mFrom->setEnabled(mHours->isChecked());
  mTo->setEnabled(mHours->isChecked());
  showDates();
  if (onChange) onChange();
}

void WhenStep::showDates() {
  ZAN_Value record = mSettings;
  applyTo(record);
  const Schedule schedule(record);
  const ReferenceTime now = mHousehold.now();
  Forecast forecast(mHousehold.calendar(), schedule);
  QStringList dates;
  ReferenceTime from = now;
  for (int i = 0; i < kDates; ++i) {
    const auto run = forecast.next(from);
    if (!run || run->shutDown) break;
    dates.append(qt(comingDateOf(mHousehold, run->date)));
    from = std::max(from, run->date);
    forecast.setLastRun(from);
  }
  mDates->setText(dates.isEmpty()
                      ? mHousehold.text(!schedule.automatic ? "WhenNoDateManual" : "WhenNoDate")
                      : dates.join('\n'));
  const auto never = Forecast::partsThatNeverRun(mHousehold.calendar(), schedule, now);
  mNever->setVisible(!never.empty());
  if (never.empty()) return;
  switch (never.front().why) {
    case Forecast::Never::Why::hoursNeverCome:
      return mNever->setText(mHousehold.text("NeverHours"));
    case Forecast::Never::Why::outsideHours:
      return mNever->setText(mHousehold.text("NeverOutside"));
    case Forecast::Never::Why::noSuchDay:
      return mNever->setText(mHousehold.text("NeverDay"));
  }
}

}  // namespace corvana
