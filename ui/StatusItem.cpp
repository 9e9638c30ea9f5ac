#include "ui/StatusItem.h"

#include <algorithm>
#include <cmath>

#include "actions/ActionContext.h"
#include "core/work/Work.h"

namespace corvana {

namespace {

constexpr int kLongestCountDown = 59;
constexpr int kAlreadyRed = 10;

std::string nameOf(StatusIcon icon) {
  switch (icon) {
    case StatusIcon::normal:
      return "MenuNormal";
    case StatusIcon::disabled:
      return "MenuDisabled";
    case StatusIcon::diskChanged:
      return "MenuDisabledDiskChanged";
    case StatusIcon::willDisable:
      return "MenuWillDisable";
    case StatusIcon::running:
      return "MenuRunning";
    case StatusIcon::pause:
      return "MenuPause";
    case StatusIcon::surveyResult:
      return "MenuSurvey";
    case StatusIcon::lacking:
      return "MenuAmber";
    case StatusIcon::error:
      return "MenuRed";
  }
  return "MenuNormal";
}

std::string inStyle(const std::string& name, int style) {
  return name + (style == 1 ? "Black" : style == 2 ? "White" : "");
}

std::string badgeOf(int context) {
  if (context <= 0) return {};
  switch (static_cast<ActionContext>(context)) {
    case ActionContext::office:
      return "BadgeOffice";
    case ActionContext::home:
      return "BadgeHome";
    default:
      return "BadgeNomad";
  }
}

}  // namespace

double StatusPie::sweep() const {
  const double turn = std::fmod(from - to, 360.0);
  return turn < 0 ? turn + 360.0 : turn;
}

StatusPicture StatusPicture::of(StatusIcon icon, int context, int style) {
  StatusPicture picture;
  // What is said by its colour has it whatever the style.
  const bool isSaidByColour = icon == StatusIcon::error || icon == StatusIcon::lacking;
  picture.image = isSaidByColour ? nameOf(icon) : inStyle(nameOf(icon), style);
  if (icon == StatusIcon::normal || icon == StatusIcon::lacking) picture.badge = badgeOf(context);
  return picture;
}

StatusPicture StatusPicture::ofCountDown(int minutes, int context, int style) {
  if (minutes > kLongestCountDown) return of(StatusIcon::normal, context, style);
  return {inStyle("MenuNormalTimer", style), {}, std::max(0, minutes)};
}

StatusPie StatusPicture::pie(int minutes, double width, double height) {
  StatusPie pie;
  pie.centreX = width / 2;
  pie.centreY = height / 2 - 1;
  pie.radius = width / 2 - 3.5;
  pie.from = 90;
  pie.to = minutes * 359.0 / 60.0 + 91;
  const double t = std::max(0, minutes - kAlreadyRed);
  pie.red = 1 - t / 60;
  pie.green = t / 120;
  pie.blue = t / 90;
  return pie;
}

namespace {

/// More than 59: the pie of the count-down is full, the plain picture is shown.
constexpr int kFullCountDown = 100;

}  // namespace

StatusItem::StatusItem(Records& records, const Work& work)
    : m(records),
      mWork(work),
      mUserInterface(m.platform.userInterface),
      mShowsError(m.state.mErrorInExecution != 0) {
  m.changes.listen([this](ChangeSet changes) { follow(changes); });
}

bool StatusItem::exists() const { return mUserInterface.hasStatusItem(); }

void StatusItem::createStatusItem() {
  if (exists() || mNobodySees) return;
  if (m.preferences.mShowIconMenuMode == IconShown::statusIconNever && !m.state.mMainAppLaunched &&
      m.state.mErrorInExecution == 0)
    return;
  mUserInterface.createStatusItem();
  mNobodySees = !exists();
  mCurrent.reset();
  setMenuBarIcon(StatusIcon::disabled);
  showTexts();
  m.state.updateMenu();
}

void StatusItem::follow(ChangeSet changes) {
  if (changes.empty()) return;
  if (changes.has(Change::execution)) followErrorState();
  if (changes.has(Change::queue)) createStatusItem();
  if (changes.has(Change::preferences)) followPreferences();
  showTexts();
}

/// An item that is never wanted comes for an error, and goes when the error was seen.
void StatusItem::followErrorState() {
  const bool hasError = m.state.mErrorInExecution != 0;
  if (hasError) createStatusItem();
  if (std::exchange(mShowsError, hasError) && !hasError && exists() &&
      m.preferences.mShowIconMenuMode == IconShown::statusIconNever && !m.state.mMainAppLaunched)
    mUserInterface.removeStatusItem();
}

void StatusItem::followPreferences() {
  mCurrent.reset();
  if (m.state.mErrorInExecution != 0 || m.preferences.mShowIconMenuMode == IconShown::always) {
    createStatusItem();
  } else if (m.preferences.mShowIconMenuMode == IconShown::statusIconNever && exists()) {
    mUserInterface.removeStatusItem();
  }
}

bool StatusItem::isNeeded() const {
  return m.preferences.mShowIconMenuMode == IconShown::always || m.state.mMainAppLaunched ||
         m.state.mExecuting || !mWork.queue.empty() ||
         mUserInterface.isWindowVisible(Window::nextActions) ||
         mUserInterface.isWindowVisible(Window::status);
}

void StatusItem::applyMode() {
  if (m.state.mErrorInExecution != 0 ||
      m.preferences.mShowIconMenuMode == IconShown::statusIconNever)
    return;
  if (isNeeded()) {
    createStatusItem();
  } else if (exists() && m.state.mCanHideMenubarIcon.isPassed(m.platform.clock.now())) {
    mUserInterface.removeStatusItem();
  }
}

ReferenceTime StatusItem::nextTurn() const {
  if (m.state.mMenuMustBeUpdatedTicks != 0 && exists()) return kAtOnce;
  if (m.state.mErrorInExecution != 0 ||
      m.preferences.mShowIconMenuMode == IconShown::statusIconNever)
    return kNever;
  if (isNeeded()) return exists() || mNobodySees ? kNever : kAtOnce;
  return exists() ? m.state.mCanHideMenubarIcon.passing() : kNever;
}

void StatusItem::turn(std::int64_t n, std::optional<int> secondsToNext) {
  if (!secondsToNext) applyMode();
  update(n, secondsToNext);
}

void StatusItem::update(std::int64_t n, std::optional<int> secondsToNext) {
  SchedulerState& state = m.state;
  if (!exists() || (state.mMenuMustBeUpdatedTicks != 1 && !secondsToNext)) {
    if (state.mMenuMustBeUpdatedTicks > 0) --state.mMenuMustBeUpdatedTicks;
    return;
  }
  const bool odd = n % 2 != 0;
  const bool surveyResult = !state.mSurveyFolderResult.isNull();
  // What alternates has to be drawn again at the next tick.
  bool alternates = state.mErrorInExecution != 0;
  if (alternates && odd) {
    setMenuBarIcon(StatusIcon::error);
  } else if (state.mScheduleDisabled) {
    setMenuBarIcon(StatusIcon::disabled);
  } else if (state.mPause || surveyResult) {
    alternates = true;
    if (odd) {
      setMenuBarTimerIcon(kFullCountDown);
    } else {
      setMenuBarIcon(state.mPause ? StatusIcon::pause : StatusIcon::surveyResult);
    }
  } else if (state.mExecuting) {
    setMenuBarIcon(StatusIcon::running);
  } else {
    setMenuBarTimerIcon(secondsToNext && !odd ? *secondsToNext : kFullCountDown);
  }
  state.mMenuMustBeUpdatedTicks = alternates ? 1 : 0;
}

void StatusItem::setMenuBarIcon(StatusIcon icon) {
  if (m.state.mStartedFromNewMachine) icon = StatusIcon::diskChanged;
  const std::pair wanted(icon, m.state.mContext);
  if (mCurrent == wanted) return;
  mUserInterface.setStatusIcon(icon, m.state.mContext);
  mCurrent = wanted;
}

void StatusItem::setMenuBarTimerIcon(int minutes) {
  if (m.state.mStartedFromNewMachine) {
    setMenuBarIcon(StatusIcon::diskChanged);
  } else if (minutes > 59) {
    setMenuBarIcon(m.state.mScheduleDisabledWhenDone ? StatusIcon::willDisable
                   : m.state.mLacking.empty()        ? StatusIcon::normal
                                                     : StatusIcon::lacking);
  } else {
    mUserInterface.setStatusCountDown(minutes, m.state.mContext);
    mCurrent.reset();
  }
}

MenuColour StatusItem::titleColour() const {
  if (m.state.mStartedFromNewMachine) return MenuColour::alarm;
  if (m.state.mPause || mWork.supervisor.stall()) return MenuColour::warning;
  return m.state.mScheduleDisabled ? MenuColour::secondary : MenuColour::information;
}

std::string StatusItem::shownTitle() const {
  if (m.state.mStartedFromNewMachine) return m.texts.text("StartedOtherMachine");
  if (m.state.mPause) return m.texts.text("RunningPaused");
  if (std::string stuck = mWork.supervisor.stallText(); !stuck.empty()) return stuck;
  if (m.state.mScheduleDisabled) return m.texts.text("DisabledInfo");
  return m.state.mStatusTitle.empty() ? m.texts.text("NoNextAction") : m.state.mStatusTitle;
}

std::string StatusItem::lackingText() const {
  const auto& lacking = m.state.mLacking;
  if (lacking.size() > 1) return m.texts.text("LackingCount", {lacking.size()});
  return lacking.empty() ? std::string()
                         : m.texts.text("LackingOne", {m.tree.titleOf(lacking.front())});
}

void StatusItem::showTexts() {
  if (std::string title = shownTitle(); title != mDrawnTitle)
    mUserInterface.setStatusTitle(mDrawnTitle = std::move(title));
  std::string toolTip = m.texts.text("IconToolTip");
  if (const std::string& next = mWork.evaluation.nextActionText(); !next.empty())
    toolTip = next + "\n" + toolTip;
  if (const std::string progress = progressInWords(mWork.supervisor, m.texts, m.strings);
      !progress.empty())
    toolTip = progress + "\n" + toolTip;
  if (const std::string lacking = lackingText(); !lacking.empty())
    toolTip = lacking + "\n" + toolTip;
  if (toolTip != mDrawnToolTip) mUserInterface.setToolTip(mDrawnToolTip = std::move(toolTip));
}

}  // namespace corvana
