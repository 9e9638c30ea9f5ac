#include "mail/smtp/ZAN_SMTPClient.h"

#include <stdexcept>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/SMTPTexts.h"
#include "platform/Network.h"
#include "platform/RunLoop.h"

namespace corvana {

namespace {

constexpr std::size_t kPiece = 76;
constexpr std::string_view kLineEnd = "\r\n";

std::string encodedWord(const std::string& text) { return "=?UTF-8?B?" + base64Of(text) + "?="; }

std::string shown(const EmailAddress& address) {
  if (!address.description) return address.email;
  return encodedWord(*address.description) + " <" + address.email + ">";
}

std::string inPieces(const std::string& text) {
  std::string pieces;
  pieces.reserve(text.size() + text.size() / kPiece + 1);
  for (std::size_t at = 0; at < text.size(); at += kPiece) {
    if (at > 0) pieces += '\n';
    pieces.append(text, at, kPiece);
  }
  return pieces;
}

/// A dot at the beginning of a line is doubled: alone it would end the message.
std::string dotted(std::string_view text) {
  std::string block;
  block.reserve(text.size() + 8);
  while (!text.empty()) {
    const std::size_t end = text.find(kLineEnd);
    if (text.starts_with('.')) block += '.';
    block.append(text.substr(0, end)).append(kLineEnd);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + kLineEnd.size());
  }
  return block.append(".").append(kLineEnd);
}

}  // namespace

std::string SMTPMessage::dataBlock() const {
  if (isFinished) return dotted(message);
  std::string recipients;
  for (const EmailAddress& address : to) {
    if (!recipients.empty()) recipients += ", ";
    recipients += shown(address);
  }
  std::string block;
  for (const std::string& line :
       {"From: " + shown(from), "To: " + recipients, "Subject: " + encodedWord(subject),
        std::string("Mime-Version: 1.0"), std::string("Content-Type: text/html; charset=\"UTF-8\""),
        std::string("Content-Transfer-Encoding: base64"), std::string(),
        inPieces(base64Of(message)), std::string(".")})
    block.append(line).append(kLineEnd);
  return block;
}

namespace {

/// The first system whose mail program shows a body as HTML.
constexpr int kFirstHtmlSystem = 100800;

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + with.size()))
    text.replace(at, what.size(), with);
  return text;
}

}  // namespace

std::shared_ptr<ZAN_SMTPClient> ZAN_SMTPClient::clientWithServerAddress(
    const std::string& address, const std::string& ports, std::int64_t tlsMode,
    const std::string& username, const std::string& password, std::int64_t preferedAuthMethod) {
  return std::make_shared<ZAN_SMTPClient>(Key{}, address, ports, tlsMode, username, password,
                                          preferedAuthMethod);
}

ZAN_SMTPClient::ZAN_SMTPClient(Key, const std::string& address, const std::string& ports,
                               std::int64_t tlsMode, const std::string& username,
                               const std::string& password, std::int64_t preferedAuthMethod)
    : mAddress(address),
      mPorts(portsFrom(ports)),
      mTlsMode(tlsMode),
      mAuthMethod(preferedAuthMethod) {
  if (address.empty()) throw std::invalid_argument("Invalid server address");
  if (preferedAuthMethod <= 0) return;
  if (!username.empty()) mAuthUsername = username;
  if (!password.empty()) mAuthPassword = password;
}

void ZAN_SMTPClient::setCredentials(std::optional<std::string> username,
                                    std::optional<std::string> password) {
  mAuthUsername = std::move(username);
  mAuthPassword = std::move(password);
}

void ZAN_SMTPClient::setDelegate(std::shared_ptr<const SMTPClientDelegate> delegate) {
  mDelegate = std::move(delegate);
}

std::vector<std::string> ZAN_SMTPClient::portsFrom(const std::string& text) {
  if (text.empty()) return {"25", "465", "587"};
  if (text.find(',') == std::string::npos) return {text};
  return splitAt(replaced(replaced(text, " ", ","), ",,", ","), ',');
}

std::string ZAN_SMTPClient::message(const std::string& text, std::int64_t crFormat,
                                    int systemVersion) {
  if (crFormat == 0 && systemVersion != 0) crFormat = systemVersion < kFirstHtmlSystem ? 2 : 1;
  return crFormat == 1 ? replaced(text, "\n", "<br>") : replaced(text, "<br>", "\n");
}

void ZAN_SMTPClient::sendMessage(RunLoop& runLoop, Network& network, Clock& clock,
                                 const SMTPCaller& caller, const std::string& message,
                                 const std::string& subject, const std::string& from,
                                 const std::string& to, std::int64_t crFormat) const {
  const auto connector =
      connectorForMessage(network, clock, caller, message, subject, from, to, crFormat);
  if (connector == nullptr) return;
  runLoop.detachThread("smtp", [connector] { connector->start(); });
}

std::shared_ptr<SMTPConnector> ZAN_SMTPClient::connectorForMessage(
    Network& network, Clock& clock, const SMTPCaller& caller, const std::string& message,
    const std::string& subject, const std::string& from, const std::string& to,
    std::int64_t crFormat) const {
  if (from.empty()) throw std::invalid_argument("Empty sender email address");
  if (to.empty()) throw std::invalid_argument("Empty destination email address");
  const std::string sender = lowercase(from);
  const std::string recipients = lowercase(to);
  if (!network.resolves(mAddress)) throw std::invalid_argument("Invalid server address");

  SMTPMessage mail;
  mail.subject = subject;
  mail.message = ZAN_SMTPClient::message(message, crFormat, caller.systemVersion);
  const auto splitSender = EmailAddress::splitAddress(sender);
  if (!splitSender) return nullptr;
  mail.from = *splitSender;
  for (const std::string& piece : splitAt(recipients, ',')) {
    const auto recipient = EmailAddress::splitAddress(trimmedOfBlanks(piece));
    if (!recipient) return nullptr;
    mail.to.push_back(*recipient);
  }
  return std::make_shared<SMTPConnector>(shared_from_this(), network, clock, caller,
                                         std::move(mail));
}

}  // namespace corvana
