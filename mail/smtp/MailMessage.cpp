#include "mail/smtp/MailMessage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/SMTPTexts.h"

namespace corvana {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlphanumeric(char c) { return isDigit(c) || (c >= 'a' && c <= 'z'); }
bool isHyphenated(char c) { return isAlphanumeric(c) || c == '-'; }

bool isOfAtom(char c) {
  return isAlphanumeric(c) ||
         std::string_view("!#$%&'*+/=?^_`{|}~-").find(c) != std::string_view::npos;
}

/// Control characters that may stand in quotes and brackets: not NUL, tab, line feed or return.
bool isControl(char c) {
  return (c >= 0x01 && c <= 0x08) || c == 0x0b || c == 0x0c || (c >= 0x0e && c <= 0x1f);
}
/// What may follow a backslash: also tab and blank.
bool isEscapable(char c) { return isControl(c) || c == '\t' || (c >= 0x20); }
bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

/// Parts of one or more characters, joined by single dots.
bool isDottedAtoms(std::string_view text) {
  bool wasAtom = false;
  for (const char c : text) {
    if (c == '.' ? !wasAtom : !isOfAtom(c)) return false;
    wasAtom = c != '.';
  }
  return wasAtom;
}

/// The length of the quoted text at the beginning, quotes included; 0 when it has no end.
std::size_t quotedLength(std::string_view text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') return i + 1;
    if (c == '\\') {
      if (++i == text.size() || !isAscii(text[i]) || !isEscapable(text[i])) return 0;
    } else if (!isControl(c) && !(isAscii(c) && c > 0x20)) {
      return 0;
    }
  }
  return 0;
}

bool isLabel(std::string_view text) {
  return !text.empty() && isAlphanumeric(text.front()) && isAlphanumeric(text.back()) &&
         std::ranges::all_of(text, isHyphenated);
}

bool isDomain(std::string_view text) {
  std::size_t labels = 0;
  for (;;) {
    const std::size_t dot = text.find('.');
    if (!isLabel(text.substr(0, dot))) return false;
    ++labels;
    if (dot == std::string_view::npos) return labels >= 2;
    text.remove_prefix(dot + 1);
  }
}

bool isByteNumber(std::string_view text) {
  return !text.empty() && text.size() <= 3 && std::ranges::all_of(text, isDigit) &&
         integerValue(text) <= 255;
}

/// "tag:content", in place of the last number of an address in brackets. In the content a tab or a
/// blank needs a backslash before it.
bool isTagged(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == 0 || colon == std::string_view::npos || colon + 1 == text.size()) return false;
  if (!std::ranges::all_of(text.substr(0, colon), isHyphenated) || text[colon - 1] == '-')
    return false;
  for (std::size_t i = colon + 1; i < text.size(); ++i) {
    const char c = text[i];
    if (isControl(c) || (isAscii(c) && c > 0x20)) continue;
    if ((c != '\t' && c != ' ') || i == colon + 1 || text[i - 1] != '\\') return false;
  }
  return true;
}

bool isBracketed(std::string_view text) {
  if (!text.starts_with('[') || !text.ends_with(']') || text.size() < 2) return false;
  text = text.substr(1, text.size() - 2);
  for (int i = 0; i < 3; ++i) {
    const std::size_t dot = text.find('.');
    if (dot == std::string_view::npos || !isByteNumber(text.substr(0, dot))) return false;
    text.remove_prefix(dot + 1);
  }
  return isByteNumber(text) || isTagged(text);
}

/// At the commas that stand neither in quotes nor in angle brackets.
std::vector<std::string_view> piecesOfList(std::string_view text) {
  std::vector<std::string_view> pieces;
  bool isQuoted = false, isBracketed = false;
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || (text[i] == ',' && !isQuoted && !isBracketed)) {
      pieces.push_back(trimmed(text.substr(begin, i - begin)));
      begin = i + 1;
    } else if (text[i] == '\\' && isQuoted) {
      ++i;
    } else if (text[i] == '"') {
      isQuoted = !isQuoted;
    } else if (!isQuoted && (text[i] == '<' || text[i] == '>')) {
      isBracketed = text[i] == '<';
    }
  }
  return pieces;
}

/// Without the quotes around it and the backslashes in them.
std::string withoutQuotes(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::string(text);
  std::string name;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '\\' && i + 2 < text.size()) ++i;
    name += text[i];
  }
  return name;
}

}  // namespace

Result<std::vector<EmailAddress>> EmailAddress::list(std::string_view text) {
  std::vector<EmailAddress> addresses;
  for (const std::string_view piece : piecesOfList(text)) {
    const std::size_t open = piece.ends_with('>') ? piece.rfind('<') : std::string_view::npos;
    std::string_view email = piece, name;
    if (open != std::string_view::npos) {
      email = trimmed(piece.substr(open + 1, piece.size() - open - 2));
      name = trimmed(piece.substr(0, open));
    }
    if (!validateEmail(lowercase(email))) {
      return Error{ErrorKind::refused, piece.empty()
                                           ? std::string("an e-mail address is missing")
                                           : inOneLine(piece) + ": not an e-mail address"};
    }
    EmailAddress address{std::string(email), std::nullopt};
    if (!name.empty()) address.description = inOneLine(withoutQuotes(name));
    addresses.push_back(std::move(address));
  }
  return addresses;
}

bool EmailAddress::validateEmail(std::string_view text) {
  const bool isQuoted = text.starts_with('"');
  const std::size_t at = isQuoted ? quotedLength(text) : text.find('@');
  if (at == 0 || at >= text.size() || text[at] != '@') return false;
  if (!isQuoted && !isDottedAtoms(text.substr(0, at))) return false;
  const std::string_view host = text.substr(at + 1);
  return isDomain(host) || isBracketed(host);
}

std::optional<EmailAddress> EmailAddress::splitAddress(std::string_view text) {
  const std::size_t open = text.find('<');
  const std::size_t close = text.rfind('>');
  if (open == std::string_view::npos && close == std::string_view::npos) {
    if (!validateEmail(text)) return std::nullopt;
    return EmailAddress{std::string(text), std::nullopt};
  }
  if (open == std::string_view::npos || close == std::string_view::npos || close < open)
    return std::nullopt;
  const std::string_view email = trimmed(text.substr(open + 1, close - open - 1));
  if (!validateEmail(email)) return std::nullopt;
  // One character may be several bytes.
  std::size_t end = open;
  if (end > 0) --end;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  const std::string_view name = trimmed(text.substr(0, end));
  EmailAddress address{std::string(email), std::nullopt};
  if (!name.empty()) address.description = name;
  return address;
}

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
