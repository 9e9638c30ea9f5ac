#pragma once

#include "mail/report/ReportComposer.h"

namespace corvana {

class Messages;
class Preferences;
struct Platform;

/// Mails the daily report: by itself once a launch, at most one a day, and whenever it is asked
/// for. Thread: main.
class EmailReport {
 public:
  /// Everything outlives it.
  struct Surroundings {
    Platform& platform;
    ActionStore& store;
    History& history;
    Preferences& preferences;
    Messages& messages;
    MailSender& mail;
    const ZAN_StringTable& texts;
    const ZAN_StringUtils& strings;
  };

  explicit EmailReport(const Surroundings& surroundings);

  /// The automatic report comes 300 s from now.
  void start();
  /// One that is asked for comes in half a second.
  void sendDailyReportNow();
  /// The automatic report is the first of its day and marks the day even when it cannot be sent, so
  /// the very first only marks it. One that was asked for counts from the last automatic one. When
  /// there is nothing to send nothing is said.
  void sendEmailReport(bool askedFor);

 private:
  void send(const ComposedReport& report);
  void sayFailure(const Outcome& outcome);

  Surroundings m;
  ReportComposer mComposer;
};

}  // namespace corvana
