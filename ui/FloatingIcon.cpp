#include "ui/FloatingIcon.h"

#include <utility>

#include "core/work/Work.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;

}  // namespace

std::vector<std::string> floatingIconLines(const UserInterfaceSources& sources, std::size_t count) {
  std::vector<std::string> lines;
  if (count == 0) return lines;
  lines.push_back(sources.statusItem.shownTitle());
  if (std::string progress =
          progressInWords(sources.work.supervisor, sources.records.texts, sources.records.strings);
      !progress.empty() && lines.size() < count)
    lines.push_back(std::move(progress));
  // While nothing runs and nothing holds the agent up, the first line names what comes next.
  bool isNamed = sources.statusItem.titleColour() == MenuColour::information &&
                 !sources.work.supervisor.isExecuting() && sources.work.queue.empty();
  const ReferenceTime now = sources.records.platform.clock.now();
  for (const NextAction& next : sources.work.evaluation.actionsNextList()) {
    // Those without a date come last.
    if (lines.size() >= count || !next.hasDate) break;
    if (std::exchange(isNamed, false)) continue;
    const std::string when = next.date - now < kDay
                                 ? sources.records.strings.getShortTime(next.date)
                                 : sources.records.strings.getShortDate(next.date);
    lines.push_back(when + "  " + next.name());
  }
  return lines;
}

namespace {

constexpr double kKeepFloatingIcon = 7.0;
constexpr double kKeepStatusItem = 10.0;
/// Where the right third of the menu bar begins, in parts of the screen's width.
constexpr double kRightThird = 0.67;

bool isHoverPlace(const Point& pointer, const Rect& screen, const Rect& visibleFrame) {
  return pointer.y > menuBarBottom(screen, visibleFrame) &&
         pointer.x > screen.x + kRightThird * screen.width;
}

}  // namespace

FloatingIcon::FloatingIcon(Records& records, const Announce& announce, StatusItem& statusItem)
    : m(records),
      mAnnounce(announce),
      mStatusItem(statusItem),
      mUserInterface(m.platform.userInterface),
      mCloseFloatingIcon(m.state.deadlines) {
  m.changes.listen([this](ChangeSet changes) { follow(changes); });
}

void FloatingIcon::follow(ChangeSet changes) {
  if (changes.has(Change::progress)) showProgress();
  if (!changes.has(Change::preferences)) return;
  applyMode();
  mUserInterface.rearrangeMessageWindows();
}

void FloatingIcon::applyMode() {
  mUserInterface.setFloatingIconOpacity(m.preferences.mPrefFloatingIconTransparency);
  if (m.preferences.mShowFloatingIconMode == IconShown::floatingIconNever)
    mUserInterface.hideWindow(Window::floatingIcon);
  if (m.preferences.mShowFloatingIconMode == IconShown::always) show();
}

void FloatingIcon::show() {
  mUserInterface.setFloatingIconOpacity(m.preferences.mPrefFloatingIconTransparency);
  mUserInterface.showWindow(Window::floatingIcon);
}

void FloatingIcon::showProgress() {
  const ExecutionProgress& progress = m.state.mProgress;
  if (mAnnounce.isOpen()) {
    std::string text = "0";
    if (progress.sizeCopied >= 0) {
      text = ZAN_StringUtils::format(
          "%@ (%@)",
          {m.strings.getIntegerWithSeparators(progress.filesCopied),
           m.strings.getShortSizeBytes(static_cast<std::uint64_t>(progress.sizeCopied))});
    }
    if (progress.errors != 0)
      text += " " + m.texts.text("MiniErrorsResults",
                                 {m.strings.getIntegerWithSeparators(progress.errors)});
    mUserInterface.setAnnounceProgress(progress.value, text);
  }
  mUserInterface.setActionExecuted(progress.sizeCopied, progress.percent(), progress.errors);
}

void FloatingIcon::turn() {
  Input& input = m.platform.input;
  if (const auto pointer = input.pointer())
    hover(*pointer, input.mainScreen(), input.visibleFrame());
}

ReferenceTime FloatingIcon::nextTurn() const {
  const int mode = m.preferences.mShowFloatingIconMode;
  const bool watches =
      mode == IconShown::onHover || m.preferences.mShowIconMenuMode == IconShown::onHover ||
      (mode != IconShown::always && mUserInterface.isWindowVisible(Window::floatingIcon));
  Input& input = m.platform.input;
  const auto pointer = watches ? input.pointer() : std::nullopt;
  if (!pointer) return kNever;
  // What is shown on hover stays as long as the pointer does.
  if (!m.state.mUserRests || isHoverPlace(*pointer, input.mainScreen(), input.visibleFrame()))
    return kAtOnce;
  return mode != IconShown::always && mUserInterface.isWindowVisible(Window::floatingIcon)
             ? mCloseFloatingIcon.passing()
             : kNever;
}

void FloatingIcon::hover(const Point& pointer, const Rect& screen, const Rect& visibleFrame) {
  const ReferenceTime now = m.platform.clock.now();
  if (isHoverPlace(pointer, screen, visibleFrame)) {
    if (m.preferences.mShowFloatingIconMode == IconShown::onHover) {
      if (!mUserInterface.isWindowVisible(Window::floatingIcon)) show();
      mCloseFloatingIcon.set(now + kKeepFloatingIcon);
    }
    if (m.preferences.mShowIconMenuMode == IconShown::onHover) {
      mStatusItem.createStatusItem();
      m.state.mCanHideMenubarIcon.set(now + kKeepStatusItem);
    }
  } else if (m.preferences.mShowFloatingIconMode != IconShown::always &&
             mCloseFloatingIcon.isPassed(now) &&
             mUserInterface.isWindowVisible(Window::floatingIcon)) {
    mUserInterface.hideWindow(Window::floatingIcon);
  }
}

}  // namespace corvana
