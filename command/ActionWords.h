#pragma once

#include "command/ActionDraft.h"
#include "command/CommandHome.h"
#include "command/RepositoryWords.h"
#include "command/ScheduleWords.h"

namespace corvana {

/// What the words of `add` and `edit` say about an action.
class ActionWords {
 public:
  /// Takes its words out of the arguments and complains there about wrong ones.
  explicit ActionWords(Arguments& arguments);

  bool isEmpty() const;
  /// Whether only what a group has too is given: title, shortcut, group.
  bool fitsGroup() const;
  bool hasSources() const { return !mSources.empty(); }
  /// Whether it says anew what is copied where.
  bool changesCopies() const {
    return hasSources() || hasDestination() || mMode || mAdopts || !mRotation.empty();
  }
  bool hasDestination() const { return mDestination.has_value() || mRepository.hasAddress(); }
  void setTitle(std::string title) { mTitle = std::move(title); }
  const ScheduleWords& schedule() const { return mSchedule; }
  /// The group that the action shall lie in; 0: the top. Nothing when none was named.
  const std::optional<std::int64_t>& group() const { return mGroup; }

  /// Looks at the folders; to be called before the rest, outside of any lock. Says why a folder
  /// will not do.
  Outcome describeFolders(CommandHome& home);
  /// Writes what was given into the record. Refuses what its engine cannot do.
  Outcome applyTo(ZAN_Value& record, const CommandHome& home) const;
  /// Refuses a record that got a schedule or hours with which some part of it can never run, and
  /// says why; with --force it is only a warning.
  Outcome checkThatItRuns(const ZAN_Value& record, const CommandHome& home,
                          const Console& console) const;

 private:
  ScheduleWords mSchedule;
  std::vector<std::string> mSources;
  std::optional<std::string> mDestination;
  std::optional<std::string> mTitle;
  std::optional<std::string> mShortcut;
  std::optional<int> mMode;
  std::optional<int> mContext;
  std::optional<int> mMakeUp;
  std::optional<int> mAgeAlarm;
  std::optional<std::int64_t> mDeleteLimit;
  std::optional<std::int64_t> mGroup;
  bool mAdopts = false;
  std::optional<std::string> mKeep;
  std::vector<std::string> mExcluded;
  std::vector<std::string> mTakenBack;
  bool mExcludesMissing = false;
  bool mExcludesProposed = false;
  std::vector<std::string> mRotation;
  std::optional<std::int64_t> mBandwidth;
  bool mForce = false;
  RepositoryWords mRepository;
  ActionFolders mFolders;
};

/// Of an execution that is no run, what it is, as it follows a title: ", restore".
std::string taskInWords(const ZAN_Value& task);
/// A reference as a word of the command line.
Result<std::int64_t> referenceFrom(const std::string& word);
/// The group with that reference below the root; the root for 0.
Result<ProgrammedAction*> groupWithReference(ProgrammedAction& root, std::int64_t reference);
/// What was done to an action, with its next run.
Answer answerAbout(std::string_view done, const ZAN_Value& settings, CommandHome& home);

}  // namespace corvana
