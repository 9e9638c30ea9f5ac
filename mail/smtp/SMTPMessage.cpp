#include "mail/smtp/SMTPMessage.h"

#include <string_view>

#include "mail/smtp/SMTPTexts.h"

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

}  // namespace corvana
