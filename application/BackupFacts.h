#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "actions/Forecast.h"
#include "mail/report/ReportFacts.h"

namespace corvana {

class Household;

/// What there is to say of one backup at a glance.
struct BackupFacts {
  static constexpr std::size_t kRuns = 30;

  std::int64_t reference = 0;
  std::string title;
  std::string group;  ///< that it lies in; empty: none
  std::int64_t groupReference = 0;
  std::string sources;      ///< "Documents, Letters"
  std::string destination;  ///< as the user calls it: a volume, with the folder on it
  std::string folder;       ///< where the copies are now; empty while their volume is not there
  bool isOnServer = false;  ///< they are in no folder of this machine
  bool isComplete = true;   ///< it says what is copied where

  std::optional<ReferenceTime> lastSuccess;
  std::optional<std::uint64_t> files, bytes;  ///< copied then; nothing where it was not counted
  std::vector<RunKind> runs;                  ///< the last ones that have ended, the oldest first
  /// How the last one ended that is no success, or no whole one, when there was none after it.
  std::optional<RunKind> failure;
  ReferenceTime failedAt = 0;
  std::string reason;          ///< of that one, in words
  bool isFailureSeen = false;  ///< the user has said so
  bool mayTakeOver = false;    ///< it failed over copies there that are not known as its own
  bool onlyLacks = false;      ///< it is a success but for what cannot be copied
  std::optional<ReferenceTime> overdueSince;
  std::int64_t deletionsToConfirm = 0;  ///< files that the next run would delete and asks about

  std::optional<Forecast::Run> next;
  Hold hold = Hold::none;  ///< what would keep it from running then
  std::string schedule;    ///< what makes it run, in words
  bool waitsForEvent = false;
  std::optional<std::uint64_t> free, size;  ///< of the volume of its copies

  /// The volume of the copies is not connected.
  bool isAway() const { return folder.empty() && !destination.empty() && !isOnServer; }
  /// The reason, no longer than there is room for; it is whole in the history.
  std::string shortReason() const;
  bool isBad() const { return failure && *failure == RunKind::failed && !isFailureSeen; }
  /// It is known that the last run failed, and none has succeeded since.
  bool isUnmended() const { return failure && isFailureSeen && !onlyLacks; }
  /// Something is lacking, or it has gone without success for long.
  bool needsCare() const {
    return (failure && !isFailureSeen) || overdueSince || deletionsToConfirm > 0 || !isComplete;
  }
};

/// Those of all backups, in the order of the tree. Asks no volume that is slow.
std::vector<BackupFacts> factsOf(Household& household);

/// A date that has passed, as people say it, at the beginning of a line: "Today at 18:30".
std::string pastDateOf(Household& household, ReferenceTime date);
/// The same for one to come.
std::string comingDateOf(Household& household, ReferenceTime date);
/// Of what stands by itself.
QString withCapital(const std::string& text);

}  // namespace corvana
