#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// A list of names that may be long, kept in a file without a name.
class NameList {
 public:
  NameList();
  void add(const std::string& name);
  std::uint64_t count() const { return mCount; }
  /// Of those that do not end in "/".
  std::uint64_t countOfFiles() const { return mFiles; }
  /// In the order in which they were added, until `each` says no. False when the list could not be
  /// kept whole; then nothing is called.
  bool forEach(const std::function<bool(const std::string&)>& each);

 private:
  void flush();

  ZAN_Descriptor mFile;
  std::string mBuffer;
  std::uint64_t mCount = 0;
  std::uint64_t mFiles = 0;
  bool mIsWhole = true;
};

/// The folder beside the copies that takes in what runs replace and delete, each run in a folder of
/// its own that is named after its start: ".corvana9-versions/2026-11-22T041503Z/Documents/letter".
/// Thread: one.
class Versions {
 public:
  static constexpr std::string_view kName = ".corvana9-versions";
  static constexpr double kKept = 30 * 86400.0;  ///< seconds

  /// Makes the folder of a run that begins now.
  static Result<Versions> begin(const HeldFolder& destination, ReferenceTime now);
  /// Where the run puts what it takes out of that copy; made when it is not there.
  Result<HeldFolder> folderOf(const std::string& copy) const { return mRun.makeBelow(copy); }
  /// Removes the folder of the run when there is nothing in it.
  void end();

  /// Removes the folders of runs that are older than `kKept`.
  void thin(ReferenceTime now);
  /// Removes the oldest folder of another run; false when there is none.
  bool removeOldest();

 private:
  Versions(HeldFolder destination, HeldFolder all, HeldFolder run, std::string name)
      : mDestination(std::move(destination)),
        mAll(std::move(all)),
        mRun(std::move(run)),
        mName(std::move(name)) {}
  std::vector<std::string> others() const;
  bool remove(const std::string& run);

  HeldFolder mDestination;
  HeldFolder mAll;
  HeldFolder mRun;
  std::string mName;
};

/// Takes out of a copy what its source no longer has, item by item, and puts it aside. Each name is
/// looked up again in the held source: only what is certainly not there is moved.
class Deletion {
 public:
  /// All three on their volumes; `aside` on that of the copy.
  Deletion(const HeldFolder& source, const HeldFolder& copy, const HeldFolder& aside)
      : mSource(source), mCopy(copy), mAside(aside) {}

  /// Whether the source certainly has nothing of that name, and could have told.
  bool isGone(const std::string& name);
  /// Moves it aside; of a folder only what is empty by now. What is not there is done.
  Outcome moveAside(const std::string& name);
  std::uint64_t filesMoved() const { return mFiles; }

 private:
  struct Parent {
    std::string name;
    ZAN_Descriptor folder;
    int failure = 0;
    bool isKnown = false;
  };
  const Parent& parentOf(Parent& last, const HeldFolder& root, const std::string& name);
  bool makeParentsAside(const std::string& parent);

  const HeldFolder& mSource;
  const HeldFolder& mCopy;
  const HeldFolder& mAside;
  Parent mSourceParent;
  Parent mCopyParent;
  Parent mAsideParent;
  std::uint64_t mFiles = 0;
};

}  // namespace corvana
