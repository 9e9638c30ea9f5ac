#include "ZANCocoaFramework/ZAN_PropertyList.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "ZANCocoaFramework/ZAN_BinaryPropertyList.h"
#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_XmlPropertyList.h"

// A property list as people read it: the platform's old text form.

namespace corvana {

namespace {

bool isBinary(std::string_view text) { return text.starts_with(ZAN_BinaryPropertyList::kMagic); }

/// Without a byte-order mark and blanks, which parsers of XML do not all allow before the
/// declaration.
std::string_view withoutLead(std::string_view text) {
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  return text;
}

bool isXml(std::string_view text) {
  return text.starts_with("<?xml") || text.starts_with("<!DOCTYPE plist") ||
         text.starts_with("<plist");
}

std::string_view textOf(std::span<const std::byte> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace

bool ZAN_PropertyList::isPropertyList(std::span<const std::byte> data) {
  return isBinary(textOf(data)) || isXml(withoutLead(textOf(data)));
}

Result<ZAN_Value> ZAN_PropertyList::propertyListWithData(std::span<const std::byte> data) {
  if (isBinary(textOf(data))) return ZAN_BinaryPropertyList(data).read();
  const std::string_view text = withoutLead(textOf(data));
  if (!isXml(text)) return Error{ErrorKind::damaged, "this is no property list"};
  return readXmlPropertyList(std::as_bytes(std::span(text.data(), text.size())));
}

std::string ZAN_PropertyList::xmlPropertyList(const ZAN_Value& root) {
  return writeXmlPropertyList(root);
}

namespace {

constexpr std::size_t kStep = 4;
constexpr int kDeepest = 128;

bool isPlain(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](unsigned char letter) {
    return letter < 128 && (std::isalnum(letter) != 0 || letter == '_');
  });
}

std::string inQuotes(std::string_view text) {
  if (isPlain(text)) return std::string(text);
  std::string result = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') result += '\\';
    if (letter == '\n') {
      result += "\\n";
    } else {
      result += letter;
    }
  }
  return result + "\"";
}

std::string hexadecimal(std::span<const std::byte> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % 4 == 0) text += ' ';
    text += kDigits[std::to_integer<unsigned>(bytes[i]) >> 4U];
    text += kDigits[std::to_integer<unsigned>(bytes[i]) & 15U];
  }
  return text + ">";
}

std::string numberText(const ZAN_Value& number) {
  if (!number.isReal()) {
    return number.letter() == 'Q' ? std::to_string(number.unsignedValue())
                                  : std::to_string(number.integerValue());
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", number.doubleValue());
  return text;
}

void write(const ZAN_Value& value, std::size_t indent, int depth, std::string& text) {
  const std::string inner(indent + kStep, ' ');
  const std::string outer(indent, ' ');
  if (depth > kDeepest) {
    text += "...";
  } else if (value.isDictionary()) {
    std::vector<const ZAN_Value::Entry*> entries;
    for (const auto& entry : value.entries()) entries.push_back(&entry);
    std::ranges::stable_sort(entries, {},
                             [](const auto* entry) { return entry->key.stringView(); });
    text += "{\n";
    for (const auto* entry : entries) {
      text += inner + inQuotes(entry->key.stringView()) + " = ";
      if (entry->value.isDictionary() || entry->value.isArray()) text += inner;
      write(entry->value, indent + kStep, depth + 1, text);
      text += ";\n";
    }
    text += outer + "}";
  } else if (value.isArray() || value.isSet()) {
    text += "(\n";
    for (std::size_t i = 0; i < value.size(); ++i) {
      text += inner;
      write(value.elements()[i], indent + kStep, depth + 1, text);
      text += i + 1 < value.size() ? ",\n" : "\n";
    }
    text += outer + ")";
  } else if (value.isString()) {
    text += inQuotes(value.stringView());
  } else if (value.isNumber()) {
    text += numberText(value);
  } else if (value.isData()) {
    text += hexadecimal(value.bytes());
  } else if (const auto date = value.asDate()) {
    text += inQuotes(ZAN_DateUtils("UTC", "C").format(*date, "%Y-%m-%d %H:%M:%S +0000"));
  } else {
    text += "\"<null>\"";
  }
}

}  // namespace

std::string ZAN_PropertyList::description(const ZAN_Value& value) {
  if (value.isString()) return value.string();
  std::string text;
  write(value, 0, 0, text);
  return text;
}

}  // namespace corvana
