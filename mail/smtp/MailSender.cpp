#include "mail/smtp/MailSender.h"

#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/SMTPTexts.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "mail/smtp/ZAN_WebUtils.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr const char* kSendmail = "/usr/sbin/sendmail";
constexpr double kPollSeconds = 0.1;

/// A running mail program, kept by its own timer until it has ended.
struct Delivery {
  RunLoop& runLoop;
  std::unique_ptr<ChildProcess> child;
  MailSender::Done done;
  std::shared_ptr<void> session;

  static void poll(std::shared_ptr<Delivery> delivery) {
    if (delivery->child->isRunning()) {
      RunLoop& runLoop = delivery->runLoop;
      runLoop.performAfter(kPollSeconds, [delivery] { poll(delivery); });
      return;
    }
    if (!delivery->done) return;
    const int status = delivery->child->terminationStatus();
    if (status == 0)
      delivery->done({});
    else
      delivery->done(Error{ErrorKind::refused, std::string(kSendmail) + ": ended with status " +
                                                   std::to_string(status)});
  }
};

/// The whole session, on the calling thread.
Outcome delivered(const ZAN_SMTPClient& client, const SMTPSurroundings& surroundings,
                  const std::string& body, const std::string& subject, const std::string& sender,
                  const std::string& recipients, std::int64_t crFormat) {
  try {
    const auto connector =
        client.connectorForMessage(surroundings, body, subject, sender, recipients, crFormat);
    if (connector == nullptr) {
      return Error{ErrorKind::refused,
                   client.address() + ": the sender or a recipient is no e-mail address"};
    }
    connector->start();
    return connector->outcome();
  } catch (const std::invalid_argument& exception) {
    return Error{ErrorKind::unavailable, client.address() + ": " + exception.what()};
  }
}

}  // namespace

MailSender::MailSender(const Surroundings& surroundings)
    : m(surroundings), mSessions(std::make_shared<char>()), mHere(std::make_shared<char>()) {}

MailSender::~MailSender() = default;

Outcome MailSender::send(const MailSettings& settings, const std::string& subject,
                         const std::string& body, Done done) {
  std::shared_ptr<ZAN_SMTPClient> client;
  try {
    client = ZAN_SMTPClient::clientWithServerAddress(settings.server, settings.ports,
                                                     settings.tlsMode, settings.username,
                                                     settings.password, settings.authMethod);
  } catch (const std::invalid_argument& exception) {
    return Error{ErrorKind::refused, std::string("E-mail: ") + exception.what()};
  }
  if (settings.sender.empty() || settings.recipients.empty())
    return Error{ErrorKind::refused, settings.server + ": no sender or no recipient"};

  // Everything that the thread touches is its own or outlives the loop that joins it.
  RunLoop& loop = m.runLoop;
  SystemLog& log = m.systemLog;
  const SMTPSurroundings surroundings{m.network, m.clock, m.machine.hostName(),
                                      m.machine.systemVersion(),
                                      [&loop, &log](const std::string& line) {
                                        loop.performOnMain([&log, line] { log.write(line); });
                                      }};
  m.runLoop.detachThread(
      "smtp",
      [&loop, &log, client, surroundings, subject, body, sender = settings.sender,
       recipients = settings.recipients, crFormat = settings.crFormat, done = std::move(done),
       session = mSessions, here = std::weak_ptr<void>(mHere)]() mutable {
        const Outcome outcome =
            delivered(*client, surroundings, body, subject, sender, recipients, crFormat);
        loop.performOnMain([&log, outcome, done = std::move(done), here] {
          if (!outcome) log.write("E-mail not sent: " + outcome.error().text);
          if (done && !here.expired()) done(outcome);
        });
        session.reset();
      });
  return {};
}

void MailSender::sendEmailWithMessage(const std::string& message, const std::string& subject,
                                      const std::string& recipient, Done done) {
  const std::string text = inOneLine(asciiWithLoss("To: " + recipient)) + "\n" +
                           inOneLine(asciiWithLoss("Subject: " + subject)) + "\n\n" +
                           asciiWithLoss(ZAN_WebUtils::withLineEnds(message)) + "\n.\n";
  const auto fail = [&](const Error& error) {
    if (done) m.runLoop.performOnMain([done = std::move(done), error] { done(error); });
  };
  // The program would take it for an option.
  if (recipient.starts_with('-'))
    return fail({ErrorKind::refused, recipient + ": not an e-mail address"});
  auto child = m.processes.start({kSendmail, recipient}, true, {});
  if (!child) return fail(child.error());
  auto delivery = std::make_shared<Delivery>(
      Delivery{m.runLoop, std::move(child).value(), std::move(done), mSessions});
  delivery->child->write(text);
  m.runLoop.performAfter(kPollSeconds, [delivery] { Delivery::poll(delivery); });
}

}  // namespace corvana
