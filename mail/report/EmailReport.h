#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "mail/report/OutgoingMail.h"
#include "mail/report/ReportFacts.h"

namespace corvana {

class ActionStore;
class History;
class OutgoingMail;
class TriggerEvaluation;
class ZAN_StringTable;
class ZAN_Value;
struct Records;

/// A report as it is to be sent.
struct ComposedReport {
  MailSettings mail;
  std::string subject;
  std::string message;

  /// What is kept of it: how it was sent, without the password, and the message.
  std::string record() const;
};

/// Writes the report of what the actions did since the last one: a summary, the space on the
/// volumes over a week, and the report file of that day. Thread: main.
class ReportComposer {
 public:
  /// Everything outlives it.
  ReportComposer(ActionStore& store, History& history, const ZAN_StringTable& texts,
                 const ZAN_StringUtils& strings)
      : mStore(store), mHistory(history), mTexts(texts), mStrings(strings) {}

  /// Without a last date everything counts, and the report file is that of today. An error says why
  /// there is nothing to send: no settings, reports switched off, no report file, nobody to send it
  /// to.
  Result<ComposedReport> compose(std::optional<ReferenceTime> last, ReferenceTime now);
  /// Keeps the record of a report in the e-mail report file of that day, in place of an earlier
  /// one.
  void keep(const ComposedReport& report, ReferenceTime now);

 private:
  struct Counts {
    std::int64_t executions = 0;
    std::int64_t withErrors = 0;
    std::int64_t failed = 0;
    bool anyTrouble() const { return withErrors != 0 || failed != 0; }
  };
  /// Free bytes of one volume; 0 is unset.
  struct FreeSpace {
    std::uint64_t last = 0, lowest = 0, highest = 0;
    bool seen = false;
  };

  Counts countExecutions(ReferenceTime last);
  std::string header(std::optional<ReferenceTime> last, ReferenceTime now) const;
  std::string summary(const Counts& counts) const;
  std::string volumes(ReferenceTime last, ReferenceTime now) const;
  static FreeSpace freeSpace(const ZAN_Value& records, ReferenceTime last, ReferenceTime now);
  std::string mainAppVersion() const;

  ActionStore& mStore;
  History& mHistory;
  const ZAN_StringTable& mTexts;
  const ZAN_StringUtils& mStrings;
};

/// Mails the daily report: by itself at most once a day, and whenever it is asked for. Thread:
/// main.
///
/// Where this program has set up the account the report is a page that tells of everything since
/// the last one that was delivered, and comes at the time of day that was set, also when nothing
/// ran. Otherwise it has its old form and comes once a launch.
class EmailReport {
 public:
  EmailReport(Records& records, OutgoingMail& mail);

  /// The automatic report comes 300 s from now, or when it is time.
  void start();
  /// One that is asked for comes in half a second.
  void sendDailyReportNow();
  /// The automatic report is the first of its day and marks the day even when it cannot be sent, so
  /// the very first only marks it. One that was asked for counts from the last automatic one. When
  /// there is nothing to send nothing is said.
  void sendEmailReport(bool askedFor);

 private:
  void sendWhenDue();
  void sendPage(const MailSettings& settings, bool askedFor);
  ReferenceTime nextAfter(ReferenceTime last) const;
  void markDay(ReferenceTime now);

  Records& m;
  OutgoingMail& mMail;
  ReportComposer mComposer;
};

/// Says by message, by e-mail or both that an action was not executed for many days. Thread: main.
class NotExecutedNotice {
 public:
  NotExecutedNotice(Records& records, TriggerEvaluation& evaluation, OutgoingMail& mail)
      : m(records), mEvaluation(evaluation), mMail(mail) {}

  /// Whether the evaluation has found such an action.
  bool isWaiting() const;
  /// The notice of the first one.
  void postNext();
  void actionNotExecutedSince(const ZAN_Value& settings);

 private:
  void sendByMail(const std::string& text);

  Records& m;
  TriggerEvaluation& mEvaluation;
  OutgoingMail& mMail;
};

}  // namespace corvana
