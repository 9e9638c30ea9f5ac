#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "mail/smtp/MailSender.h"

namespace corvana {

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

}  // namespace corvana
