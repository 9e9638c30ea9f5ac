#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class Clock;
class DataFolder;
class SystemLog;

/// The locks of the data folder's files, one each; the tree and its changes share one, and so do
/// the latest files and errors, as they are never changed without a look at each other. Thread:
/// main.
class FolderLocks {
 public:
  /// Held while a file that other programs write too is read, changed and written. Taking the same
  /// lock again while it is held is free. When another program keeps it for longer than two seconds
  /// the work goes on without it, which is logged. Until that lock was got again, for a minute at
  /// most, it is not waited for, and others only for the moment that a change takes.
  class Lock {
   public:
    Lock() = default;
    Lock(Lock&& other) noexcept : mLocks(other.mLocks), mName(std::move(other.mName)) {
      other.mLocks = nullptr;
    }
    Lock& operator=(Lock&& other) noexcept;
    ~Lock();
    /// Not when the work goes on without it.
    bool isHeld() const;

   private:
    friend class FolderLocks;
    Lock(FolderLocks& locks, std::string name) : mLocks(&locks), mName(std::move(name)) {}
    FolderLocks* mLocks = nullptr;
    std::string mName;
  };

  /// All three outlive this object, which outlives its locks.
  FolderLocks(const DataFolder& folder, Clock& clock, SystemLog& log)
      : mFolder(folder), mClock(clock), mLog(log) {}

  [[nodiscard]] Lock lock(std::string_view fileName);
  /// Whether this program holds it, or goes on without it.
  bool isTaken(std::string_view fileName) const;
  /// The file of the lock.
  std::string pathFor(std::string_view fileName) const;

 private:
  struct Held {
    ZAN_FileLock lock;
    int count = 0;
  };
  std::string pathOf(const std::string& name) const;

  const DataFolder& mFolder;
  Clock& mClock;
  SystemLog& mLog;
  std::map<std::string, Held> mHeld;
  std::map<std::string, ReferenceTime> mRefused;  ///< by others, until when they are not waited for
};

}  // namespace corvana
