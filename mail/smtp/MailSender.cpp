#include "mail/smtp/MailSender.h"

#include <memory>
#include <string_view>
#include <utility>

#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr const char* kSendmail = "/usr/sbin/sendmail";
constexpr double kPollSeconds = 0.1;

std::string withLineEnds(std::string text) {
  constexpr std::string_view kBreak = "<br>";
  for (std::size_t at = text.find(kBreak); at != std::string::npos; at = text.find(kBreak, at))
    text.replace(at, kBreak.size(), "\n");
  return text;
}

/// One "?" for each character that is not ASCII.
std::string asciiWithLoss(std::string_view text) {
  std::string ascii;
  ascii.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80)
      ascii += c;
    else if (byte >= 0xC0)
      ascii += '?';
  }
  return ascii;
}

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

}  // namespace

MailSender::MailSender(Processes& processes, RunLoop& runLoop)
    : mProcesses(processes), mRunLoop(runLoop), mSessions(std::make_shared<char>()) {}

MailSender::~MailSender() = default;

Outcome MailSender::send(const MailSettings& settings, const std::string&, const std::string&,
                         Done) {
  return Error{ErrorKind::unavailable,
               settings.server + ": there is no mail client in this version"};
}

void MailSender::sendEmailWithMessage(const std::string& message, const std::string& subject,
                                      const std::string& recipient, Done done) {
  const std::string text =
      "To: " + recipient + "\nSubject: " + subject + "\n\n" + withLineEnds(message) + "\n.\n";
  auto child = mProcesses.start({kSendmail, recipient}, true, {});
  if (!child) {
    if (done)
      mRunLoop.performOnMain([done = std::move(done), error = child.error()] { done(error); });
    return;
  }
  auto delivery =
      std::make_shared<Delivery>(mRunLoop, std::move(child).value(), std::move(done), mSessions);
  delivery->child->write(asciiWithLoss(text));
  mRunLoop.performAfter(kPollSeconds, [delivery] { Delivery::poll(delivery); });
}

}  // namespace corvana
