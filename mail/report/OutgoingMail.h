#pragma once

#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "mail/smtp/MailSender.h"

namespace corvana {

struct Records;

/// What a duty has to say by mail.
struct Letter {
  std::string subject;
  std::string text;  ///< plain, its lines end in "\n"
  /// A report reaches up to here; nothing for other letters.
  std::optional<ReferenceTime> reportUntil = {};
};

/// Sends letters the way the user has set up. What does not arrive is seen where the user looks: a
/// message, an entry of the log, the error state, and what `corvana9 report --status` shows.
/// Thread: main.
class OutgoingMail {
 public:
  // Keys of the scheduler's settings.
  /// A date: up to when reports have reached the user.
  static constexpr std::string_view kDelivered = "DateOfLastReportDelivered";
  /// {"Date", "Text"} of the last letter that did not arrive; none since one did.
  static constexpr std::string_view kLastFailure = "LastMailFailure";

  OutgoingMail(Records& records, MailSender& sender) : m(records), mSender(sender) {}

  /// Over SMTP, or by the system's mail program where sender or server is missing. Settings that
  /// cannot even be tried are the error, which is told already.
  Outcome send(const MailSettings& settings, const Letter& letter);

 private:
  void sayFailure(const std::string& reason);
  void noteDelivered(const Letter& letter);

  Records& m;
  MailSender& mSender;
};

}  // namespace corvana
