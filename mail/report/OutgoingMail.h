#pragma once

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "mail/smtp/MailSender.h"
#include "platform/RunLoop.h"

namespace corvana {

struct Records;

/// What a report tells of: from the first date up to the second.
struct ReportPeriod {
  ReferenceTime since = 0;
  ReferenceTime until = 0;
};

/// A mail on its way, as it lies on disk.
struct WaitingMail {
  std::string name;   ///< of its file; names are in the order in which mails were written
  FinishedMail mail;  ///< to those who do not have it yet
  std::string subject;
  std::optional<ReportPeriod> report;
  ReferenceTime queued = 0;
  ReferenceTime next = 0;  ///< when it is tried again
  int attempts = 0;        ///< begun
  /// It was sent to its last byte, and what the server said to that was never noted.
  bool isDoubtful = false;
  std::optional<ReferenceTime> taken;    ///< by the server, first for some and then for all
  std::optional<ReferenceTime> givenUp;  ///< and not tried any more
  std::string reason;                    ///< why it waits or was given up

  bool isWaiting() const { return !givenUp && !mail.recipients.empty(); }

  static WaitingMail made(FinishedMail mail, std::string subject, ReferenceTime now);
  /// The server has it; who was refused for now keeps waiting, who was refused for good does not.
  void noteTaken(const std::vector<SMTPConnector::Refusal>& refusals, ReferenceTime now);
};

/// The folder of mails on their way, a file of mode 0600 each. Passwords are not in it. Thread:
/// any, as long as each mail has one at a time.
class MailSpool {
 public:
  /// `hiddenFolder`: where what is transient lies. Nothing is created before something is written.
  explicit MailSpool(const std::string& hiddenFolder);

  /// All of them, oldest first; a file that cannot be read is left where it is and named in
  /// `damaged`.
  std::vector<WaitingMail> read(std::vector<std::string>* damaged = nullptr) const;
  /// Whole and synchronised, or not at all.
  Outcome write(const WaitingMail& mail) const;
  /// Whether it still lies there: the user may have dropped it.
  bool contains(const WaitingMail& mail) const;
  Outcome remove(const WaitingMail& mail) const;

 private:
  std::string mFolder;
  ZAN_FileWriter mWriter;
};

/// What a duty has to say by mail.
struct Letter {
  std::string subject;
  std::string text;       ///< plain, its lines end in "\n"
  std::string html = {};  ///< the same to be read in a mail program, which the standard way sends
  /// What a report tells of; nothing for other letters.
  std::optional<ReportPeriod> report = {};
};

/// A letter by the standards, as it goes over the line; an error when sender or recipients are no
/// addresses.
Result<FinishedMail> finishedMail(const MailSettings& settings, const Letter& letter,
                                  ReferenceTime now, const ZAN_DateUtils& calendar);

/// Sends letters the way the user has set up. What does not arrive is seen where the user looks: a
/// message, an entry of the log, the error state, and what `corvana9 report --status` shows.
///
/// Where this program has set up the account a letter lies on disk before anything is sent, and
/// until a server has taken it: it is tried again after 5 minutes, 30 minutes, 2 hours and then
/// every 6 hours, three days long, across restarts. Once the server's yes is noted it never goes
/// again; cut off between its last byte and that note it goes once more under the same message ID.
/// Thread: main.
class OutgoingMail {
 public:
  // Keys of the scheduler's settings.
  /// A date: up to when reports have reached the user without a gap.
  static constexpr std::string_view kDelivered = "DateOfLastReportDelivered";
  /// {"Date", "Text"} of the last letter that did not arrive; none since one did.
  static constexpr std::string_view kLastFailure = "LastMailFailure";
  /// So often a letter is tried.
  static constexpr int kMostAttempts = 15;

  OutgoingMail(Records& records, MailSender& sender);

  /// Takes up what waits from before.
  void start();
  /// Over SMTP, or by the system's mail program where sender or server is missing. What cannot even
  /// be tried, or put on disk, is the error, which is told already.
  Outcome send(const MailSettings& settings, const Letter& letter);

  /// Up to when reports were delivered or are on their way, without a gap; nothing without any.
  std::optional<ReferenceTime> reportedUntil() const;
  /// From when on the next report has to tell; nothing before the first.
  std::optional<ReferenceTime> reportSince() const;

 private:
  Outcome sendAtOnce(const MailSettings& settings, const Letter& letter);
  Outcome putOnDisk(const MailSettings& settings, const Letter& letter);
  void work();
  void deliver(WaitingMail& mail);
  void delivered(const std::string& name, const Delivery& delivery);
  void notDelivered(WaitingMail& mail, const Delivery& delivery);
  void giveUp(WaitingMail& mail);
  void forget(const WaitingMail& mail);
  void keep(const WaitingMail& mail);
  void sayRefusals(const WaitingMail& mail, const Delivery& delivery);
  void sayFailure(const std::string& text);
  void noteDelivered(const std::optional<ReportPeriod>& report);
  WaitingMail* mailNamed(const std::string& name);

  Records& m;
  MailSender& mSender;
  MailSpool mSpool;
  std::vector<WaitingMail> mMails;  ///< oldest first
  bool mIsSending = false;          ///< one of them
  RunLoop::TimerId mTimer = 0;
};

}  // namespace corvana
