#pragma once

#include <string>

#include "mail/report/OutgoingMail.h"
#include "mail/report/ReportComposer.h"
#include "mail/report/ReportFacts.h"

namespace corvana {

class OutgoingMail;
class TriggerEvaluation;
class ZAN_Value;
struct Records;

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
