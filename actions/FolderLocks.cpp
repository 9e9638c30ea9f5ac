#include "actions/FolderLocks.h"

#include "actions/DataFiles.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr double kLongestWait = 2.0;
constexpr double kImpatience = 60.0;
/// For other locks meanwhile: whoever holds one for so long probably holds more of them, while a
/// sound program has changed its file by then.
constexpr double kShortWait = 0.1;

std::string nameFor(std::string_view fileName) {
  if (fileName == DataFolder::kChanges) fileName = DataFolder::kActions;
  if (fileName == DataFolder::kErrors) fileName = DataFolder::kFiles;
  return std::string(fileName) + ".lock";
}

}  // namespace

FolderLocks::Lock& FolderLocks::Lock::operator=(Lock&& other) noexcept {
  std::swap(mLocks, other.mLocks);
  std::swap(mName, other.mName);
  return *this;
}

FolderLocks::Lock::~Lock() {
  if (mLocks == nullptr) return;
  const auto held = mLocks->mHeld.find(mName);
  if (held != mLocks->mHeld.end() && --held->second.count == 0) mLocks->mHeld.erase(held);
}

bool FolderLocks::Lock::isHeld() const {
  return mLocks != nullptr && mLocks->mHeld.at(mName).lock.descriptor() >= 0;
}

FolderLocks::Lock FolderLocks::lock(std::string_view fileName) {
  const std::string name = nameFor(fileName);
  Held& held = mHeld[name];
  if (held.count++ == 0) {
    const ReferenceTime now = mClock.now();
    // A date farther ahead comes from a clock that was set back since.
    std::erase_if(mRefused, [now](const auto& refused) {
      return refused.second <= now || refused.second > now + kImpatience;
    });
    const bool isRefused = mRefused.contains(name);
    const double patience = isRefused ? 0 : !mRefused.empty() ? kShortWait : kLongestWait;
    auto lock = ZAN_FileLock::acquire(pathOf(name), patience,
                                      [this](double seconds) { mClock.sleep(seconds); });
    if (lock) {
      held.lock = std::move(*lock);
      mRefused.erase(name);
    } else {
      if (!isRefused) mLog.write("Going on without lock: " + lock.error().text);
      if (lock.error().kind == ErrorKind::unavailable && !isRefused)
        mRefused.emplace(name, mClock.now() + kImpatience);
    }
  }
  return Lock(*this, name);
}

bool FolderLocks::isTaken(std::string_view fileName) const {
  return mHeld.contains(nameFor(fileName));
}

std::string FolderLocks::pathFor(std::string_view fileName) const {
  return pathOf(nameFor(fileName));
}

std::string FolderLocks::pathOf(const std::string& name) const {
  return ZAN_FilesUtils::joinedPath(ZAN_FilesUtils::joinedPath(mFolder.hiddenFolderPath(), "Locks"),
                                    name);
}

}  // namespace corvana
