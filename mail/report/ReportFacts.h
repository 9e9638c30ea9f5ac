#pragma once

#include <set>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ProgrammedAction.h"
#include "mail/report/OutgoingMail.h"

namespace corvana {

class ActionStore;
class ActionTree;
class History;

/// How a run ended, by the code of its entry in the history.
enum class RunKind { running, completed, withErrors, stopped, failed };
RunKind kindOfRun(std::int64_t code);

/// Something that the user should look after. This is what a report begins with.
struct ReportAttention {
  /// What is only lacking, since it cannot be copied, is told and is no failure.
  enum class Weight { failed, overdue, caution, lacking };
  Weight weight = Weight::caution;
  std::string title;  ///< "Photos: a disk or folder was not there"
  std::string text;   ///< the reason, when it last went well, and what to do
};

/// What happened in a period and how things stand at its end, for a report to tell.
struct ReportFacts {
  struct Disk {
    std::string name;
    std::uint64_t size = 0;
    std::uint64_t free = 0;
    std::optional<ReferenceTime> full;  ///< at the pace of the last month; only within a year
    bool isTight() const;
  };
  /// All runs of one action.
  struct Ran {
    std::string title;
    std::int64_t runs = 0;
    std::int64_t withoutNews = 0;               ///< runs that had nothing to copy
    std::optional<std::uint64_t> files, bytes;  ///< nothing where no run has counted them
    double seconds = 0;
  };
  struct Coming {
    std::string title;
    std::string when;  ///< in words
  };

  ReportPeriod period;
  std::string machine;
  std::int64_t failed = 0;                 ///< runs that came to nothing
  std::int64_t withErrors = 0;             ///< runs to which something is lacking
  std::int64_t completed = 0;              ///< runs without fault
  std::vector<ReportAttention> attention;  ///< the gravest first
  std::vector<Disk> disks;                 ///< the fullest first
  std::vector<Ran> ran;                    ///< by title
  std::vector<Coming> coming;
  std::vector<std::string> skipped;  ///< what was not done, and why
  std::vector<std::string> notes;    ///< what the agent had to say
  std::optional<ReferenceTime> lastRun;

  /// Something failed or is overdue, be it mended since.
  bool hasFailures() const;
  std::int64_t overdue() const;
};

/// Finds the facts in the files. Thread: main.
class ReportGatherer {
 public:
  /// Everything outlives it.
  ReportGatherer(ActionStore& store, History& history, ActionTree& tree,
                 const ZAN_StringTable& texts, const ZAN_StringUtils& strings)
      : mStore(store), mHistory(history), mTree(tree), mTexts(texts), mStrings(strings) {}

  ReportFacts gather(const ReportPeriod& period);
  /// A date that has passed, in words: "today at 18:30", "Friday at 18:30".
  std::string pastDate(ReferenceTime date, ReferenceTime now) const;

 private:
  struct Action;

  void takeRuns(ReportFacts& facts);
  void takeRun(const ZAN_Value& entry, Action& action, ReportFacts& facts) const;
  ReportAttention attentionOf(const Action& action, ReferenceTime now) const;
  ReportAttention lackOf(const Action& action) const;
  std::string reasonOf(const ZAN_Value& run) const;
  bool hasCrashed(const ZAN_Value& run) const;
  void takeComing(const ProgrammedAction::Nodes& actions, ReportFacts& facts) const;
  void takeOverdue(const ProgrammedAction::Nodes& actions, ReportFacts& facts) const;
  void takeDisks(ReportFacts& facts) const;
  void takeNotes(ReportFacts& facts) const;

  ActionStore& mStore;
  History& mHistory;
  ActionTree& mTree;
  const ZAN_StringTable& mTexts;
  const ZAN_StringUtils& mStrings;
  ZAN_Value mLog;
  std::set<std::int64_t> mFailed;  ///< in the period, by reference
};

}  // namespace corvana
