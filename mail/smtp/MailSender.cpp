#include "mail/smtp/MailSender.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "mail/smtp/SMTPTexts.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace corvana {

namespace {

constexpr std::int64_t kPort = 25;
constexpr double kConnectSeconds = 30;
constexpr double kSendSeconds = 30;
constexpr double kPause = 2;
constexpr std::string_view kDialogue =
    "HELO localhost\r\nMAIL FROM:<%@>\r\nRCPT TO:<%@>\r\nDATA\r\nFrom: %@ <%@>\r\nTo: %@\r\n"
    "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n"
    "Subject: %@\r\n\r\n%@\r\n.\r\nQUIT\r\n";

}  // namespace

std::string ZAN_WebUtils::withLineEnds(std::string text) {
  constexpr std::string_view kBreak = "<br>";
  for (std::size_t at = text.find(kBreak); at != std::string::npos; at = text.find(kBreak, at))
    text.replace(at, kBreak.size(), "\n");
  return text;
}

std::optional<ZAN_WebUtils::MailError> ZAN_WebUtils::sendMailTo(
    Network& network, Clock& clock, const std::optional<std::string>& recipient,
    const std::optional<std::string>& sender, const std::string& subject, const std::string& text,
    const std::string& server) {
  if (!recipient && sender) throw std::invalid_argument("sendMailTo bad parameters");
  if (!network.resolves(server)) return MailError::unresolved;
  const auto stream = network.connect(server, kPort, Network::Family::ipv4);
  const double connected = clock.monotonic() + kConnectSeconds;
  auto event = StreamConnection::Event::nothing;
  while (event == StreamConnection::Event::nothing && clock.monotonic() < connected)
    event = stream->wait(connected - clock.monotonic(), false);
  if (event != StreamConnection::Event::opened) return MailError::notConnected;

  const std::string to = inOneLine(recipient.value_or(""));
  const std::string from = inOneLine(sender.value_or(""));
  const std::string dialogue = ZAN_StringUtils::format(
      kDialogue, {from, to, from, from, to, inOneLine(subject), withLineEnds(text)});
  std::string_view rest = dialogue;
  const double end = clock.monotonic() + kSendSeconds;
  while (!rest.empty() && clock.monotonic() < end) {
    const auto taken = stream->send(rest);
    if (!taken) return MailError::notSent;
    rest.remove_prefix(*taken);
    // What the server says meanwhile is of no interest.
    static_cast<void>(stream->read(1 << 16));
    if (!rest.empty() && stream->wait(1, true) == StreamConnection::Event::failed)
      return MailError::notSent;
  }
  clock.sleep(kPause);
  return rest.empty() ? std::nullopt : std::optional(MailError::notSent);
}

namespace {

constexpr const char* kSendmail = "/usr/sbin/sendmail";
constexpr double kPollSeconds = 0.1;
constexpr std::uint64_t kLongestPassword = 4096;

/// A running mail program, kept by its own timer until it has ended.
struct MailProgram {
  RunLoop& runLoop;
  std::unique_ptr<ChildProcess> child;
  MailSender::Done done;
  std::shared_ptr<void> session;

  static void poll(std::shared_ptr<MailProgram> delivery) {
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
Outcome delivered(const ZAN_SMTPClient& client, Network& network, Clock& clock,
                  const SMTPCaller& caller, const std::string& body, const std::string& subject,
                  const std::string& sender, const std::string& recipients, std::int64_t crFormat) {
  try {
    const auto connector = client.connectorForMessage(network, clock, caller, body, subject, sender,
                                                      recipients, crFormat);
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

bool goesAsItIs(const std::string& text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; }) &&
         ("\n" + text + "\n").find("\n.\n") == std::string::npos;
}

std::string textForSendmail(const std::string& message, const std::string& subject,
                            const std::string& recipient) {
  std::string text = inOneLine("To: " + recipient) + "\n";
  if (goesAsItIs(message) && goesAsItIs(subject))
    return text + inOneLine("Subject: " + subject) + "\n\n" + message + "\n.\n";
  text += MailMessage::header("Subject", MailMessage::headerText(subject), "\n") +
          "MIME-Version: 1.0\nContent-Type: text/plain; charset=UTF-8\n"
          "Content-Transfer-Encoding: base64\n\n";
  return text + MailMessage::base64Lines(message + "\n", "\n") + ".\n";
}

/// The first line of a file that nobody else may read.
Result<std::string> passwordFrom(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    return Error{ErrorKind::absent, path + ": the file with the password is not there"};
  if ((status.st_mode & 0077U) != 0) {
    return Error{ErrorKind::refused,
                 path + ": others may read the password; chmod 600 keeps them from it"};
  }
  auto file = ZAN_FilesUtils::readFile(path, kLongestPassword);
  if (!file) return file.error();
  return file->bytes.substr(0, file->bytes.find_first_of("\r\n"));
}

Result<std::string> passwordOf(const MailSettings& settings, Processes& processes) {
  if (settings.username.empty() || settings.authMethod == 0) return std::string();
  if (!settings.passwordFile.empty()) return passwordFrom(settings.passwordFile);
  if (!settings.passwordIsInKeyring) return settings.password;
  auto found = processes.runTool(KeyringTool::lookUp(MailSender::keyringAttributes(settings)),
                                 KeyringTool::kSeconds);
  if (!found) {
    return Error{ErrorKind::unavailable,
                 "the password of " + settings.username +
                     " cannot be read from the keyring: " + found.error().text};
  }
  return found->substr(0, found->find('\n'));
}

/// The same for a finished message.
Delivery deliveredMail(const MailSettings& settings, const FinishedMail& mail,
                       MailSender::Steps steps, std::shared_ptr<const SMTPClientDelegate> delegate,
                       Network& network, Clock& clock, const SMTPCaller& caller,
                       Processes& processes) {
  Delivery delivery;
  if (settings.server.empty() || mail.sender.empty() || mail.recipients.empty()) {
    delivery.reason = settings.server + ": no server, no sender or no recipient";
    return delivery;
  }
  const auto secret = passwordOf(settings, processes);
  if (!secret) {
    delivery.reason = secret.error().text;
    return delivery;
  }
  const auto client =
      ZAN_SMTPClient::clientWithServerAddress(settings.server, settings.ports, settings.tlsMode,
                                              settings.username, *secret, settings.authMethod);
  client->setDelegate(std::move(delegate));
  SMTPMessage message{true, mail.message, {}, {mail.sender, {}}, {}};
  for (const std::string& recipient : mail.recipients) message.to.push_back({recipient, {}});
  SMTPConnector connector(client, network, clock, caller, std::move(message));
  connector.onBodyBegins = std::move(steps.bodyBegins);
  if (steps.taken) connector.onTaken = [&] { steps.taken(connector.refusals()); };
  connector.start();
  delivery.isTaken = connector.success();
  delivery.isDoubtful = connector.isDoubtful();
  delivery.wasAnswered = connector.wasGreeted();
  delivery.refusals = connector.refusals();
  if (const Outcome outcome = connector.outcome(); !outcome) delivery.reason = outcome.error().text;
  return delivery;
}

}  // namespace

MailSender::MailSender(Clock& clock, RunLoop& runLoop, Machine& machine, Processes& processes,
                       SystemLog& systemLog, Network& network)
    : mClock(clock),
      mRunLoop(runLoop),
      mMachine(machine),
      mProcesses(processes),
      mSystemLog(systemLog),
      mNetwork(network),
      mSessions(std::make_shared<char>()),
      mHere(std::make_shared<char>()) {}

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
  RunLoop& loop = mRunLoop;
  SystemLog& log = mSystemLog;
  mRunLoop.detachThread(
      "smtp",
      [&loop, &log, &network = mNetwork, &clock = mClock, client, caller = caller(), subject, body,
       sender = settings.sender, recipients = settings.recipients, crFormat = settings.crFormat,
       done = std::move(done), session = mSessions, here = std::weak_ptr<void>(mHere)]() mutable {
        const Outcome outcome =
            delivered(*client, network, clock, caller, body, subject, sender, recipients, crFormat);
        loop.performOnMain([&log, outcome, done = std::move(done), here] {
          if (!outcome) log.write("E-mail not sent: " + outcome.error().text);
          if (done && !here.expired()) done(outcome);
        });
        session.reset();
      });
  return {};
}

KeyringTool::Attributes MailSender::keyringAttributes(const MailSettings& settings) {
  return {"server", settings.server, "user", settings.username};
}

SMTPCaller MailSender::caller() const {
  RunLoop& loop = mRunLoop;
  SystemLog& log = mSystemLog;
  return {mMachine.hostName(), mMachine.systemVersion(), [&loop, &log](const std::string& line) {
            loop.performOnMain([&log, line] { log.write(line); });
          }};
}

void MailSender::deliver(const MailSettings& settings, const FinishedMail& mail, Steps steps,
                         std::function<void(const Delivery&)> done,
                         std::shared_ptr<const SMTPClientDelegate> delegate) {
  RunLoop& loop = mRunLoop;
  mRunLoop.detachThread("smtp", [&loop, &processes = mProcesses, &network = mNetwork,
                                 &clock = mClock, settings, mail, steps = std::move(steps),
                                 delegate = std::move(delegate), caller = caller(),
                                 done = std::move(done), session = mSessions,
                                 here = std::weak_ptr<void>(mHere)]() mutable {
    const Delivery delivery = deliveredMail(settings, mail, std::move(steps), std::move(delegate),
                                            network, clock, caller, processes);
    loop.performOnMain([delivery, done = std::move(done), here, session = std::move(session)] {
      if (done && !here.expired()) done(delivery);
    });
  });
}

void MailSender::sendEmailWithMessage(const std::string& message, const std::string& subject,
                                      const std::string& recipient, Done done) {
  const std::string text = textForSendmail(ZAN_WebUtils::withLineEnds(message), subject, recipient);
  const auto fail = [&](const Error& error) {
    if (done) mRunLoop.performOnMain([done = std::move(done), error] { done(error); });
  };
  // The program would take it for an option.
  if (recipient.starts_with('-'))
    return fail({ErrorKind::refused, recipient + ": not an e-mail address"});
  auto child = mProcesses.start({kSendmail, recipient}, true, {});
  if (!child) return fail(child.error());
  auto delivery = std::make_shared<MailProgram>(
      MailProgram{mRunLoop, std::move(child).value(), std::move(done), mSessions});
  delivery->child->write(text);
  mRunLoop.performAfter(kPollSeconds, [delivery] { MailProgram::poll(delivery); });
}

}  // namespace corvana
