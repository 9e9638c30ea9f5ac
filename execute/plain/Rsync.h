#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/engine/ChildProgram.h"

namespace corvana {

/// Reads what rsync says while it works, in whatever pieces it arrives. File names come back with
/// the bytes they have on disk, line feeds included.
class RsyncOutput {
 public:
  /// A change that rsync tells of: its own word for it (">f+++++++++", "*deleting"), the size of
  /// the item, and its name; that of a folder ends in "/".
  struct Item {
    std::string_view change;
    std::uint64_t size = 0;
    std::string name;

    bool isDeletion() const { return change.starts_with("*deleting"); }
    bool isFolder() const { return name.ends_with('/'); }
    /// Its contents are to be copied.
    bool isTransfer() const { return change.starts_with('>'); }
    bool isNew() const { return change.size() > 2 && change[2] == '+'; }
    /// Only told of where everything is.
    bool isUnchanged() const { return change.size() == 2; }
  };
  /// What a path in an error stands for: what begins with `held` is shown with `path` instead.
  struct Place {
    std::string held;
    std::string path;
    bool isSource = false;
    bool isCopy = false;
  };
  /// An error in rsync's words.
  struct Failure {
    std::string text;
    /// The item that the copy has to do without, since nobody but its owner may read it, or since
    /// the copy's file system does not take its name, its kind or its attributes. Relative; nothing
    /// for an error of another kind.
    std::optional<std::string> lack = {};
    /// Relative, too: what lies in the copy and may not be changed.
    std::optional<std::string> hindered = {};
  };

  RsyncOutput() = default;
  explicit RsyncOutput(std::vector<Place> places, std::function<void(const Item&)> onItem = {})
      : mPlaces(std::move(places)), mOnItem(std::move(onItem)) {}

  /// The words of rsync's command line that make it speak as this class listens; `isAtOnce`: also
  /// while a file is copied, and not only now and then.
  static std::vector<std::string> arguments(bool isAtOnce = true);
  /// The name of the item that a file of this name is a half of, as rsync names what it writes
  /// (".letter.Ab12Cd"); nothing for other names. Folders before the name stay.
  static std::optional<std::string> itemOfHalf(const std::string& name);

  void readOutput(std::string_view bytes);  ///< from the standard output
  void readErrors(std::string_view bytes);  ///< from the standard error
  /// After the end: what came without a line feed counts as a line.
  void finish();

  /// Name of the item at work, relative to the folder that is copied; empty before the first.
  const std::string& currentItem() const { return mCurrentItem; }
  std::uint64_t itemsSeen() const { return mSeen; }  ///< while the source is being listed
  /// With what has been copied so far of the item at work.
  std::uint64_t bytesCopied() const { return std::min(mBytes, mBytesBegun); }
  std::uint64_t filesCopied() const { return mFiles; }  ///< the one at work included
  /// How many items the source has that are no folders; said at the end.
  std::uint64_t filesListed() const { return mListed - std::min(mFoldersListed, mListed); }
  /// And their bytes.
  std::uint64_t bytesListed() const { return mBytesListed; }
  std::uint64_t errorCount() const { return mErrorCount; }
  /// Of the errors those that name what the copy has to do without.
  std::uint64_t lackCount() const { return mLackCount; }
  /// The first 200 of the errors.
  const std::vector<Failure>& errors() const { return mErrors; }
  /// The path that the first, and the last, error names; nothing when they name none.
  const std::optional<std::string>& firstErrorPath() const { return mFirstErrorPath; }
  const std::optional<std::string>& lastErrorPath() const { return mLastErrorPath; }
  /// What of the source could not be read or vanished, as names relative to it: empty for the
  /// source itself. Nothing when there was more of it than is kept.
  const std::optional<std::set<std::string>>& unread() const { return mUnread; }
  bool isFull() const { return mIsFull; }  ///< no space was left for what is copied
  /// The item that was larger than the copy's file system takes files, which ended rsync.
  const std::optional<std::string>& tooLarge() const { return mTooLarge; }

  /// rsync's writing of a name, "\#ooo" for what a terminal cannot show, turned back into bytes.
  static std::string decodedName(std::string_view text);

 private:
  void readOutputLine(std::string_view line);
  void readItemLine(std::string_view line);
  void readProgressLine(std::string_view line);
  void readErrorLine(std::string_view line);
  void readLongPath(std::string_view line);
  std::string placed(std::string path, std::string_view line, Failure& failure);

  std::vector<Place> mPlaces;
  std::function<void(const Item&)> mOnItem;
  std::string mOutputRest;
  std::string mErrorRest;
  std::string mCurrentItem;
  std::uint64_t mSeen = 0;
  std::uint64_t mBytes = 0;
  std::uint64_t mBytesBegun = 0;  ///< of the items that rsync has opened
  std::uint64_t mFiles = 0;
  std::uint64_t mListed = 0;
  std::uint64_t mFoldersListed = 0;
  std::uint64_t mBytesListed = 0;
  std::uint64_t mErrorCount = 0;
  std::uint64_t mLackCount = 0;
  bool mIsFull = false;
  std::optional<std::string> mTooLarge;
  std::vector<Failure> mErrors;
  std::optional<std::string> mFirstErrorPath;
  std::optional<std::string> mLastErrorPath;
  std::optional<std::set<std::string>> mUnread{std::in_place};
};

/// rsync at work, as ChildProgram runs it.
class RsyncProcess {
 public:
  using End = ChildProgram::End;
  struct Task {
    std::vector<std::string> arguments;  ///< the first is the full path of the program
    std::vector<int> descriptors = {};   ///< that it gets
    int input = -1;                      ///< what it reads, or nothing
    int watched = -1;                    ///< a descriptor; what POLLPRI on it calls is
    std::function<void()> onWatched = {};
  };

  /// Runs it to its end and blocks until then; `output` takes in what it says, and `onProgress` is
  /// called after each piece of it. An error when it cannot be started.
  static Result<End> run(const Task& task, ExecuteControl& control, RsyncOutput& output,
                         const std::function<void()>& onProgress);
};

}  // namespace corvana
