#include <charconv>
#include <cmath>

#include "ZANCocoaFramework/ZAN_Base64.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_XmlDate.h"
#include "ZANCocoaFramework/ZAN_XmlPropertyList.h"

namespace corvana {

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
