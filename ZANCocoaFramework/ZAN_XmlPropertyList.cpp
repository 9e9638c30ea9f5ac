#include "ZANCocoaFramework/ZAN_XmlPropertyList.h"

#include <QByteArray>
#include <QXmlStreamReader>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

namespace {

using std::chrono::sys_days;

constexpr sys_days kReferenceDay = std::chrono::year(2001) / 1 / 1;
constexpr double kSecondsPerDay = 86400;

std::optional<int> digits(std::string_view text) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

}  // namespace

std::optional<ReferenceTime> timeOfXmlDate(std::string_view text) {
  constexpr std::string_view kForm = "yyyy-mm-ddThh:mm:ssZ";
  if (text.size() != kForm.size()) return std::nullopt;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool separator = kForm[i] < 'a';
    if (separator && text[i] != kForm[i]) return std::nullopt;
  }
  const auto year = digits(text.substr(0, 4));
  const auto month = digits(text.substr(5, 2));
  const auto day = digits(text.substr(8, 2));
  const auto hour = digits(text.substr(11, 2));
  const auto minute = digits(text.substr(14, 2));
  const auto second = digits(text.substr(17, 2));
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const auto days = (sys_days(date) - kReferenceDay).count();
  return static_cast<double>(days) * kSecondsPerDay + *hour * 3600 + *minute * 60 + *second;
}

std::string xmlDateOfTime(ReferenceTime time) {
  constexpr sys_days kFirst = std::chrono::year(1) / 1 / 1;
  constexpr sys_days kLast = std::chrono::year(9999) / 12 / 31;
  const double least = static_cast<double>((kFirst - kReferenceDay).count()) * kSecondsPerDay;
  const double most = static_cast<double>((kLast - kReferenceDay).count() + 1) * kSecondsPerDay - 1;
  time = std::isnan(time) ? 0 : std::floor(std::clamp(time, least, most));
  const double wholeDays = std::floor(time / kSecondsPerDay);
  const std::chrono::year_month_day date(kReferenceDay +
                                         std::chrono::days(static_cast<int>(wholeDays)));
  const int seconds = static_cast<int>(time - wholeDays * kSecondsPerDay);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                seconds / 3600, seconds / 60 % 60, seconds % 60);
  return text;
}

namespace {

template <class T>
std::optional<T> numberOf(std::string_view text, int base = 10) {
  T value{};
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<ZAN_Value> integerOf(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const auto value = numberOf<unsigned long long>(text.substr(2), 16);
    return value ? std::optional(ZAN_Value(*value)) : std::nullopt;
  }
  if (const auto value = numberOf<long long>(text)) return ZAN_Value(*value);
  if (const auto value = numberOf<unsigned long long>(text)) return ZAN_Value(*value);
  return std::nullopt;
}

std::optional<ZAN_Value> realOf(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return ZAN_Value(value);
}

class Reader {
 public:
  explicit Reader(std::span<const std::byte> data)
      : mXml(QByteArray::fromRawData(reinterpret_cast<const char*>(data.data()),
                                     static_cast<qsizetype>(data.size()))) {}

  Result<ZAN_Value> read() {
    ZAN_Value root;
    if (readDocument(root)) return root;
    if (mError.text.empty()) {
      mError = {ErrorKind::damaged, mXml.errorString().toStdString() + " (line " +
                                        std::to_string(mXml.lineNumber()) + ")"};
    }
    return mError;
  }

 private:
  bool fail(std::string reason, ErrorKind kind = ErrorKind::damaged) {
    if (mError.text.empty()) {
      mError = {kind, std::move(reason) + " (line " + std::to_string(mXml.lineNumber()) + ")"};
    }
    return false;
  }

  /// The next start or end of an element; false at the end of the document and after an error.
  bool nextElement() {
    while (!mXml.atEnd()) {
      switch (mXml.readNext()) {
        case QXmlStreamReader::StartElement:
        case QXmlStreamReader::EndElement:
          return true;
        case QXmlStreamReader::Characters:
          if (!mXml.isWhitespace()) return fail("text between the elements");
          break;
        case QXmlStreamReader::DTD:
          // A list needs no entities of its own, and they can be made to grow without end.
          if (!mXml.entityDeclarations().isEmpty()) return fail("entities are declared");
          break;
        case QXmlStreamReader::EntityReference:
          return fail("an unknown entity");
        default:
          break;
      }
    }
    return false;
  }

  bool readDocument(ZAN_Value& root) {
    if (!nextElement()) return false;
    if (mXml.name() != QLatin1String("plist")) return fail("this is no property list");
    if (!nextElement()) return false;
    if (mXml.isEndElement()) return fail("the property list is empty");
    if (!readValue(root, 1) || !nextElement()) return false;
    if (!mXml.isEndElement()) return fail("more than one value");
    // What follows the root element must still be well-formed.
    while (!mXml.atEnd()) mXml.readNext();
    return !mXml.hasError();
  }

  bool readValue(ZAN_Value& into, int depth) {
    if (depth > archive::kDepthLimit) return fail("values are nested too deeply", ErrorKind::limit);
    const QString name = mXml.name().toString();
    if (name == QLatin1String("array")) return readArray(into, depth);
    if (name == QLatin1String("dict")) return readDictionary(into, depth);
    std::string text;
    if (!readText(text)) return false;
    const auto value = scalarOf(name, text);
    if (!value) return fail("<" + name.toStdString() + "> cannot be read");
    into = *value;
    return true;
  }

  static std::optional<ZAN_Value> scalarOf(const QString& name, const std::string& text) {
    if (name == QLatin1String("string")) return ZAN_Value(text);
    if (name == QLatin1String("true")) return ZAN_Value(true);
    if (name == QLatin1String("false")) return ZAN_Value(false);
    if (name == QLatin1String("integer")) return integerOf(text);
    if (name == QLatin1String("real")) return realOf(text);
    if (name == QLatin1String("date")) {
      const auto time = timeOfXmlDate(text);
      return time ? std::optional(ZAN_Value::date(*time)) : std::nullopt;
    }
    if (name == QLatin1String("data")) {
      const auto bytes = fromBase64(text);
      return bytes ? std::optional(ZAN_Value::data(*bytes)) : std::nullopt;
    }
    return std::nullopt;
  }

  bool readText(std::string& text) {
    QString all;
    while (!mXml.atEnd()) {
      switch (mXml.readNext()) {
        case QXmlStreamReader::Characters:
          all += mXml.text();
          break;
        case QXmlStreamReader::EndElement:
          text = all.toStdString();
          return true;
        case QXmlStreamReader::EntityReference:
          return fail("an unknown entity");
        case QXmlStreamReader::StartElement:
          return fail("an element within a text");
        default:
          break;
      }
    }
    return false;
  }

  bool readArray(ZAN_Value& into, int depth) {
    std::vector<ZAN_Value> elements;
    while (nextElement()) {
      if (mXml.isEndElement()) {
        into = ZAN_Value::array(std::move(elements));
        return true;
      }
      if (!readValue(elements.emplace_back(), depth + 1)) return false;
    }
    return false;
  }

  bool readDictionary(ZAN_Value& into, int depth) {
    std::vector<ZAN_Value::Entry> entries;
    while (nextElement()) {
      if (mXml.isEndElement()) {
        into = ZAN_Value::dictionaryOf(std::move(entries));
        return true;
      }
      std::string key;
      if (mXml.name() != QLatin1String("key")) return fail("a value without a key");
      if (!readText(key) || !nextElement()) return false;
      if (mXml.isEndElement()) return fail("a key without a value");
      ZAN_Value::Entry& entry = entries.emplace_back();
      entry.key = mKeys.text(key);
      if (!readValue(entry.value, depth + 1)) return false;
    }
    return false;
  }

  QXmlStreamReader mXml;
  ZAN_TextPool mKeys;
  Error mError{ErrorKind::damaged, {}};
};

}  // namespace

Result<ZAN_Value> readXmlPropertyList(std::span<const std::byte> data) {
  return Reader(data).read();
}

namespace {

using Kind = ZAN_Value::Kind;

class Writer {
 public:
  std::string write(const ZAN_Value& root) {
    mText =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    writeValue(hasForm(root) ? root : ZAN_Value::dictionary(), 0);
    return mText + "</plist>\n";
  }

 private:
  static bool hasForm(const ZAN_Value& value) {
    switch (value.kind()) {
      case Kind::null:
      case Kind::set:
      case Kind::indexSet:
      case Kind::opaque:
        return false;
      default:
        return true;
    }
  }

  void element(std::string_view name, std::string_view text, std::size_t indent) {
    mText.append(indent, '\t');
    (((mText += '<') += name) += '>') += text;
    ((mText += "</") += name) += ">\n";
  }

  void empty(std::string_view name, std::size_t indent) {
    mText.append(indent, '\t');
    ((mText += '<') += name) += "/>\n";
  }

  void writeNumber(const ZAN_Value& value, std::size_t indent) {
    if (value.letter() == 'c') return empty(value.boolValue() ? "true" : "false", indent);
    char text[40];
    char* end = text;
    if (value.isReal()) {
      const double real = value.doubleValue();
      if (std::isnan(real)) return element("real", "nan", indent);
      if (std::isinf(real)) return element("real", real < 0 ? "-infinity" : "+infinity", indent);
      end = std::to_chars(text, text + sizeof text, real).ptr;
    } else if (value.letter() == 'Q') {
      end = std::to_chars(text, text + sizeof text, value.unsignedValue()).ptr;
    } else {
      end = std::to_chars(text, text + sizeof text, value.integerValue()).ptr;
    }
    element(value.isReal() ? "real" : "integer", {text, static_cast<std::size_t>(end - text)},
            indent);
  }

  void writeValue(const ZAN_Value& value, std::size_t indent) {
    switch (value.kind()) {
      case Kind::number:
        return writeNumber(value, indent);
      case Kind::string:
        return element("string", escaped(value.stringView()), indent);
      case Kind::data:
        return element("data", base64(value.bytes()), indent);
      case Kind::date:
        return element("date", xmlDateOfTime(*value.asDate()), indent);
      case Kind::array:
        if (value.empty()) return empty("array", indent);
        open("array", indent);
        for (const ZAN_Value& part : value.elements()) {
          if (hasForm(part)) writeValue(part, indent + 1);
        }
        return close("array", indent);
      case Kind::dictionary:
        if (value.empty()) return empty("dict", indent);
        open("dict", indent);
        for (const ZAN_Value::Entry& entry : value.entries()) {
          if (!entry.key.isString() || !hasForm(entry.value)) continue;
          element("key", escaped(entry.key.stringView()), indent + 1);
          writeValue(entry.value, indent + 1);
        }
        return close("dict", indent);
      default:
        return;
    }
  }

  void open(std::string_view name, std::size_t indent) {
    mText.append(indent, '\t');
    ((mText += '<') += name) += ">\n";
  }

  void close(std::string_view name, std::size_t indent) {
    mText.append(indent, '\t');
    ((mText += "</") += name) += ">\n";
  }

  /// Control characters and the two non-characters have no form in XML at all.
  static std::string escaped(std::string_view text) {
    if (!isUtf8(text)) return escaped(withReplacedBytes(text));
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      switch (c) {
        case '&':
          out += "&amp;";
          break;
        case '<':
          out += "&lt;";
          break;
        case '>':
          out += "&gt;";
          break;
        case '\r':
          out += "&#13;";
          break;
        default:
          if (text.substr(i).starts_with("\xef\xbf\xbe") ||
              text.substr(i).starts_with("\xef\xbf\xbf")) {
            i += 2;
          } else if (static_cast<unsigned char>(c) >= 0x20 || c == '\n' || c == '\t') {
            out += c;
          }
      }
    }
    return out;
  }

  std::string mText;
};

}  // namespace

std::string writeXmlPropertyList(const ZAN_Value& root) { return Writer().write(root); }

}  // namespace corvana
