#pragma once

#include "mail/report/ReportComposer.h"

namespace corvana {

class OutgoingMail;
struct Records;

/// Mails the daily report: by itself once a launch, at most one a day, and whenever it is asked
/// for. Thread: main.
class EmailReport {
 public:
  EmailReport(Records& records, OutgoingMail& mail);

  /// The automatic report comes 300 s from now.
  void start();
  /// One that is asked for comes in half a second.
  void sendDailyReportNow();
  /// The automatic report is the first of its day and marks the day even when it cannot be sent, so
  /// the very first only marks it. One that was asked for counts from the last automatic one. When
  /// there is nothing to send nothing is said.
  void sendEmailReport(bool askedFor);

 private:
  Records& m;
  OutgoingMail& mMail;
  ReportComposer mComposer;
};

}  // namespace corvana
