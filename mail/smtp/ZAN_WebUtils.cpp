#include "mail/smtp/ZAN_WebUtils.h"

#include <memory>
#include <stdexcept>
#include <string_view>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "mail/smtp/SMTPTexts.h"
#include "platform/Clock.h"
#include "platform/Network.h"

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

}  // namespace corvana
