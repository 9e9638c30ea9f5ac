#include "mail/smtp/MailMessage.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/SMTPTexts.h"

namespace corvana {
namespace {

constexpr std::string_view kCrLf = "\r\n";
constexpr std::size_t kLine = 76;
/// So many bytes make an encoded word of 64 characters, which fits on a line behind "Subject: ".
constexpr std::size_t kWordBytes = 39;
/// No line of base64 begins so.
constexpr std::string_view kBoundary = "=_alternative";

bool isPrintableAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7f; });
}

bool isOfPhrase(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         std::string_view(" !#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

/// The longest beginning of whole characters; never empty.
std::string_view wordOf(std::string_view text) {
  const std::string_view word = beginningOfBytes(text, kWordBytes);
  return word.empty() ? text.substr(0, kWordBytes) : word;
}

/// Words with blanks between them, at which a header may be folded.
std::string encodedWords(std::string_view text) {
  const std::string whole = withReplacedBytes(text);
  std::string words;
  for (std::string_view rest = whole; !rest.empty();) {
    const std::string_view word = wordOf(rest);
    words.append(words.empty() ? "" : " ").append("=?UTF-8?B?" + base64Of(word) + "?=");
    rest.remove_prefix(word.size());
  }
  return words;
}

bool needsEncoding(std::string_view text) {
  return !isPrintableAscii(text) || text.find("=?") != std::string_view::npos;
}

std::string shownName(const std::string& name) {
  if (needsEncoding(name)) return encodedWords(name);
  if (std::ranges::all_of(name, isOfPhrase)) return name;
  std::string quoted = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string shown(const EmailAddress& address) {
  if (!address.description) return address.email;
  return shownName(*address.description) + " <" + address.email + ">";
}

/// Broken at blanks, each of which begins the next line.
std::string folded(std::string text, std::string_view lineEnd) {
  std::size_t begin = 0;
  while (text.size() - begin > kLine) {
    std::size_t blank = text.rfind(' ', begin + kLine);
    if (blank == std::string::npos || blank <= begin + 1) blank = text.find(' ', begin + kLine);
    // A blank just behind the name, or one after a blank, would leave an empty line.
    while (blank != std::string::npos && (text[blank - 1] == ' ' || text[blank - 1] == ':'))
      blank = text.find(' ', blank + 1);
    if (blank == std::string::npos) break;
    text.insert(blank, lineEnd);
    begin = blank + lineEnd.size();
  }
  return text.append(lineEnd);
}

std::string dateHeader(ReferenceTime date, int utcOffset) {
  const int minutes = std::abs(utcOffset) / 60;
  std::array<char, 8> zone{};
  std::snprintf(zone.data(), zone.size(), "%c%02d%02d", utcOffset < 0 ? '-' : '+',
                minutes / 60 % 24, minutes % 60);
  // Whole minutes, as only these can be written.
  const double local = date + (utcOffset < 0 ? -minutes : minutes) * 60.0;
  return ZAN_DateUtils("UTC", {}).format(local, "%a, %d %b %Y %H:%M:%S ") + zone.data();
}

std::string part(std::string_view type, const std::string& text, std::string_view lineEnd) {
  std::string lines;
  for (const char c : text)
    if (c == '\n')
      lines += lineEnd;
    else if (c != '\r')
      lines += c;
  return MailMessage::header("Content-Type", std::string(type) + "; charset=UTF-8", lineEnd) +
         MailMessage::header("Content-Transfer-Encoding", "base64", lineEnd) +
         std::string(lineEnd) + MailMessage::base64Lines(lines, lineEnd);
}

}  // namespace

std::string MailMessage::headerText(std::string_view text) {
  const std::string line(trimmed(inOneLine(text)));
  return needsEncoding(line) ? encodedWords(line) : line;
}

std::string MailMessage::header(std::string_view name, std::string_view text,
                                std::string_view lineEnd) {
  return folded(std::string(name) + ": " + inOneLine(text), lineEnd);
}

std::string MailMessage::base64Lines(std::string_view text, std::string_view lineEnd) {
  const std::string whole = base64Of(text);
  std::string lines;
  lines.reserve(whole.size() + whole.size() / kLine * lineEnd.size() + lineEnd.size());
  for (std::size_t at = 0; at < whole.size(); at += kLine)
    lines.append(whole, at, kLine).append(lineEnd);
  return lines;
}

std::string MailMessage::newMessageId(ReferenceTime date, const EmailAddress& from) {
  std::random_device random;
  const std::uint64_t number = (std::uint64_t{random()} << 32U) | random();
  std::array<char, 64> name{};
  std::snprintf(name.data(), name.size(), "<%llx.%016llx",
                static_cast<unsigned long long>(std::max(date, 0.0) * 1000),
                static_cast<unsigned long long>(number));
  return name.data() + from.email.substr(from.email.rfind('@')) + ">";
}

std::string MailMessage::wireForm() const {
  std::string recipients;
  for (const EmailAddress& address : to)
    recipients += (recipients.empty() ? "" : ", ") + shown(address);
  const std::string title = headerText(subject);
  std::string message;
  for (const auto& [name, value] : {std::pair<const char*, std::string>{"From", shown(from)},
                                    {"To", recipients},
                                    {"Subject", title},
                                    {"Date", dateHeader(date, utcOffset)},
                                    {"Message-ID", messageId},
                                    {"Auto-Submitted", "auto-generated"},
                                    {"MIME-Version", "1.0"}})
    message += header(name, value, kCrLf);
  if (html.empty()) return message + part("text/plain", text, kCrLf);
  const auto boundary = [](std::string_view end) {
    return std::string("--").append(kBoundary).append(end).append(kCrLf);
  };
  message +=
      header("Content-Type",
             std::string("multipart/alternative; boundary=\"").append(kBoundary) + "\"", kCrLf);
  return message.append(kCrLf) + boundary("") + part("text/plain", text, kCrLf) + boundary("") +
         part("text/html", html, kCrLf) + boundary("--");
}

std::string htmlEscaped(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size() + text.size() / 8);
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace corvana
