#include "core/record/StorageWatch.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerLog.h"
#include "platform/Platform.h"

namespace corvana {

namespace {

/// What cannot be read for so long is told; shorter troubles pass by themselves.
constexpr double kPatience = 30.0;

/// Whose loss nobody could make good again.
bool isPrecious(std::string_view name) {
  return Generations::areKeptOf(name) || name == DataFolder::kHistory;
}

std::string nameOf(const DataFiles::Trouble& trouble) {
  return std::string(ZAN_FilesUtils::lastPathComponent(trouble.path));
}

}  // namespace

StorageWatch::StorageWatch(const Platform& platform, ActionStore& store, SchedulerLog& log,
                           Messages& messages, const ZAN_StringTable& texts)
    : mPlatform(platform), mStore(store), mLog(log), mMessages(messages), mTexts(texts) {
  mStore.files().onTrouble = [this](const DataFiles::Trouble& trouble) { heard(trouble); };
}

StorageWatch::~StorageWatch() { mStore.files().onTrouble = {}; }

/// The store is in the middle of something, and what tells of it writes too.
void StorageWatch::heard(const DataFiles::Trouble& trouble) {
  const double delay = trouble.kind == DataFiles::Trouble::Kind::damaged ? 0 : kPatience;
  mPlatform.runLoop.performAfter(delay, [this, trouble, here = std::weak_ptr(mHere)] {
    if (here.expired()) return;
    if (trouble.kind != DataFiles::Trouble::Kind::damaged) {
      const auto known = mStore.files().troubles().find(trouble.path);
      if (known == mStore.files().troubles().end() || known->second.kind != trouble.kind) return;
    }
    tell(trouble);
  });
}

void StorageWatch::tell(const DataFiles::Trouble& trouble) {
  const std::string name = nameOf(trouble);
  const std::string text = textOf(trouble);
  mLog.showErrorState(LogCode::unexpectedError);
  if (isPrecious(name))
    mMessages.displayStandardMessage(text, LogCode::message);
  else
    mLog.addSchedulerLog(LogCode::message, text);
  mStore.texts().addToReportFile(text);
  if (trouble.kind == DataFiles::Trouble::Kind::damaged && Generations::areKeptOf(name))
    offerEarlierVersion(name);
}

void StorageWatch::offerEarlierVersion(const std::string& name) {
  const auto versions = mStore.files().generations().of(name);
  if (versions.empty()) return;
  const auto& newest = versions.front();
  mPlatform.userInterface.askWhich(
      mTexts.text("RecoverTitle"),
      mTexts.text("RecoverText", {name, mStore.dates().strings().getMediumDateTime(newest.date)}),
      {mTexts.text("RecoverButton"), mTexts.text("RecoverNotNowButton")},
      [this, name, path = newest.path, here = std::weak_ptr(mHere)](std::optional<int> choice) {
        if (here.expired() || choice != 0) return;
        const Outcome back = mStore.files().bringBack(name, path);
        const std::string said = back ? mTexts.text("RecoverDone", {name})
                                      : mTexts.text("RecoverFailed", {name, back.error().text});
        mMessages.displayStandardMessage(said, LogCode::message);
        if (back && onBroughtBack) onBroughtBack(name);
      });
}

std::string StorageWatch::textOf(const DataFiles::Trouble& trouble) const {
  switch (trouble.kind) {
    case DataFiles::Trouble::Kind::damaged:
      return mTexts.text(
          Generations::areKeptOf(nameOf(trouble)) ? "StorageDamagedRecover" : "StorageDamaged",
          {nameOf(trouble), trouble.kept.empty() ? trouble.path : trouble.kept});
    case DataFiles::Trouble::Kind::unreadable:
      return mTexts.text("StorageUnreadable", {trouble.reason});
    case DataFiles::Trouble::Kind::unwritable:
      return mTexts.text("StorageUnwritable", {trouble.reason});
  }
  return {};
}

ZAN_Value StorageWatch::lasting() const {
  ZAN_Value texts = ZAN_Value::array();
  for (const auto& [path, trouble] : mStore.files().troubles()) texts.append(textOf(trouble));
  return texts;
}

}  // namespace corvana
