#include "core/work/Announce.h"

#include "actions/ActionsTools.h"
#include "core/record/Records.h"
#include "core/work/ExecuteSupervisor.h"

namespace corvana {

void Announce::showAnnounceForQueueHead() {
  if (mQueue.empty()) return;
  const ProgrammedAction* action = m.tree.rootItem().actionForReference(mQueue.head().ref);
  if (action == nullptr) return;
  closeAnnounceWindow();
  m.state.mProgress = {};
  m.changes.note(Change::progress);
  m.platform.userInterface.openAnnounceWindow(action->getTitle());
  mRef = mQueue.head().ref;
  m.platform.userInterface.rearrangeMessageWindows();
}

bool Announce::isOutOfDate() const {
  return isOpen() && (mQueue.empty() || mQueue.head().ref != *mRef);
}

void Announce::closeAnnounceWindow() {
  if (!isOpen()) return;
  mRef.reset();
  m.platform.userInterface.closeAnnounceWindow();
  m.platform.userInterface.rearrangeMessageWindows();
}

std::string progressInWords(const ZAN_Value& report, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings) {
  if (report.contains(ProgressKey::itemsSeen)) {
    return texts.text("ProgressPlanning",
                      {strings.getIntegerWithSeparators(report.integer(ProgressKey::itemsSeen))});
  }
  // Some know how much it is only after a while.
  if (report[ProgressKey::bytesToCopy].unsignedValue() == 0) return {};
  const auto size = [&](std::string_view key) {
    return strings.getShortSizeBytes(report[key].unsignedValue());
  };
  std::string text =
      texts.text("ProgressBytes", {size("SizeCopied"), size(ProgressKey::bytesToCopy)});
  if (const double speed = report[ProgressKey::bytesPerSecond].doubleValue(); speed >= 1) {
    text += ", " + texts.text("ProgressSpeed",
                              {strings.getShortSizeBytes(static_cast<std::uint64_t>(speed))});
  }
  if (report.contains(ProgressKey::secondsLeft)) {
    const auto left = static_cast<std::int64_t>(report[ProgressKey::secondsLeft].doubleValue());
    text += ", " + texts.text("ProgressLeft", {ZAN_StringUtils::getDuration(left)});
  }
  return text;
}

std::string progressInWords(const ExecuteSupervisor& supervisor, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings) {
  const auto& reports = supervisor.latestExecuteCurrentPath();
  if (!supervisor.isExecuting() || reports.empty()) return {};
  return progressInWords(reports.back(), texts, strings);
}

}  // namespace corvana
