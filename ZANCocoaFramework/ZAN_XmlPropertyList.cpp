#include "ZANCocoaFramework/ZAN_XmlPropertyList.h"

#include <QByteArray>
#include <QXmlStreamReader>
#include <charconv>
#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
#include "ZANCocoaFramework/ZAN_Base64.h"
#include "ZANCocoaFramework/ZAN_TextPool.h"
#include "ZANCocoaFramework/ZAN_XmlDate.h"

namespace corvana {

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

}  // namespace corvana
