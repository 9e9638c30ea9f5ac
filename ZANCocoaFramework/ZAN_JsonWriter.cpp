#include "ZANCocoaFramework/ZAN_JsonWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

using Kind = ZAN_Value::Kind;

namespace {

constexpr int kArchiveNesting = 8;

bool isPassword(const ZAN_Value& key) {
  std::string lower = key.string();
  std::ranges::transform(lower, lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  });
  return lower.find("password") != std::string::npos;
}

bool fits32(std::int64_t value) {
  return value >= std::numeric_limits<std::int32_t>::min() &&
         value <= std::numeric_limits<std::int32_t>::max();
}

/// Whether the dictionary can be a JSON object: text keys without "$" in front, none of them twice.
bool isObject(const ZAN_Value& dictionary) {
  return std::ranges::all_of(dictionary.entries(), [&](const ZAN_Value::Entry& entry) {
    if (!entry.key.isString()) return false;
    const std::string_view key = entry.key.stringView();
    return !key.starts_with('$') && isUtf8(key) && &dictionary.value(key) == &entry.value;
  });
}

template <class T>
std::string digits(T value) {
  char text[40];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

std::string textOf(const ZAN_Value& number) {
  if (number.isReal()) {
    const double real = number.doubleValue();
    if (std::isnan(real)) return "nan";
    if (std::isinf(real)) return real < 0 ? "-inf" : "inf";
    return number.letter() == 'f' ? digits(static_cast<float>(real)) : digits(real);
  }
  return number.letter() == 'Q' ? digits(number.unsignedValue()) : digits(number.integerValue());
}

}  // namespace

void ZAN_JsonWriter::write(const ZAN_Value& value) {
  if (full()) return;
  switch (value.kind()) {
    case Kind::null:
      mText += "null";
      break;
    case Kind::number:
      writeNumber(value);
      break;
    case Kind::string:
      writeText(value.stringView());
      break;
    case Kind::data:
      writeData(value);
      break;
    case Kind::date:
      writeDate(*value.asDate());
      break;
    case Kind::array:
      writeElements(value);
      break;
    case Kind::dictionary:
      if (isObject(value)) {
        writeDictionary(value);
      } else {
        writePairs(value);
      }
      break;
    case Kind::set:
      writeForm("$set");
      writeElements(value);
      mText += '}';
      break;
    case Kind::indexSet:
      writeForm("$indexes");
      open('[');
      for (const ZAN_Value::Range& range : value.ranges()) {
        next();
        mText += '[' + digits(range.location) + ", " + digits(range.length) + ']';
      }
      close(']');
      mText += '}';
      break;
    case Kind::opaque:
      writeOpaque(value);
      break;
  }
}

void ZAN_JsonWriter::writeNumber(const ZAN_Value& value) {
  const std::int64_t whole = value.integerValue();
  const bool finite = std::isfinite(value.doubleValue());
  switch (value.letter()) {
    case 'c':
      if (whole != 0 && whole != 1) break;
      mText += whole == 1 ? "true" : "false";
      return;
    case 'i':
      if (!fits32(whole)) break;
      mText += digits(whole);
      return;
    case 'q':
      if (fits32(whole)) break;
      mText += digits(whole);
      return;
    case 'd':
      if (!finite) break;
      return writeReal(value.doubleValue());
    default:
      break;
  }
  if (mOptions.plain) {
    mText += finite ? textOf(value) : "null";
    return;
  }
  writeForm("$number");
  writeText(textOf(value));
  mText += R"(, "type": ")";
  mText += value.letter();
  mText += "\"}";
}

void ZAN_JsonWriter::writeReal(double value) {
  const std::string text = digits(value);
  mText += text;
  if (text.find_first_of(".e") == std::string::npos) mText += ".0";
}

void ZAN_JsonWriter::writeDate(double time) {
  const ZAN_Value number(time);
  if (mOptions.plain) return writeNumber(number);
  writeForm("$date");
  if (std::isfinite(time)) {
    writeReal(time);
  } else {
    writeText(textOf(number));
  }
  mText += '}';
}

void ZAN_JsonWriter::writeText(std::string_view text) {
  if (!isUtf8(text)) return writeText(withReplacedBytes(text));
  constexpr std::string_view kHex = "0123456789abcdef";
  mText += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        mText += "\\\"";
        break;
      case '\\':
        mText += "\\\\";
        break;
      case '\n':
        mText += "\\n";
        break;
      case '\r':
        mText += "\\r";
        break;
      case '\t':
        mText += "\\t";
        break;
      default:
        if (byte >= 0x20 && byte != 0x7f) {
          mText += c;
        } else {
          mText += "\\u00";
          mText += kHex[byte >> 4];
          mText += kHex[byte & 15];
        }
    }
  }
  mText += '"';
}

void ZAN_JsonWriter::writeData(const ZAN_Value& value) {
  if (mArchives < kArchiveNesting && ZAN_Unarchiver::isArchive(value.bytes())) {
    const auto inner = ZAN_Unarchiver::unarchiveObjectWithData(value.bytes());
    if (inner &&
        std::ranges::equal(ZAN_Archiver::archivedDataWithRootObject(*inner), value.bytes())) {
      writeForm("$archive");
      ++mArchives;
      write(*inner);
      --mArchives;
      mText += '}';
      return;
    }
  }
  writeForm("$data");
  writeText(base64(value.bytes()));
  mText += '}';
}

void ZAN_JsonWriter::writeElements(const ZAN_Value& value) {
  open('[');
  for (const ZAN_Value& element : value.elements()) {
    next();
    write(element);
  }
  close(']');
}

void ZAN_JsonWriter::writeDictionary(const ZAN_Value& value) {
  open('{');
  for (const ZAN_Value::Entry& entry : value.entries()) {
    next();
    writeText(entry.key.stringView());
    mText += ": ";
    writeValueOf(entry);
  }
  close('}');
}

void ZAN_JsonWriter::writePairs(const ZAN_Value& value) {
  writeForm("$dictionary");
  open('[');
  for (const ZAN_Value::Entry& entry : value.entries()) {
    next();
    open('[');
    next();
    write(entry.key);
    next();
    writeValueOf(entry);
    close(']');
  }
  close(']');
  mText += '}';
}

void ZAN_JsonWriter::writeValueOf(const ZAN_Value::Entry& entry) {
  if (mOptions.maskPasswords && entry.key.isString() && isPassword(entry.key)) {
    writeText("****");
  } else {
    write(entry.value);
  }
}

void ZAN_JsonWriter::writeOpaque(const ZAN_Value& value) {
  writeForm("$object");
  open('{');
  next();
  mText += R"("classes": [)";
  const ZAN_Opaque* opaque = value.asOpaque();
  static const ZAN_Opaque kNothing{};
  if (opaque == nullptr) opaque = &kNothing;
  for (const ZAN_Opaque::ClassName& entry : opaque->classes) {
    if (&entry != &opaque->classes.front()) mText += ", ";
    mText += '[';
    writeText(entry.name);
    mText += ", " + digits(entry.version) + ']';
  }
  mText += ']';
  next();
  mText += R"("groups": )";
  open('[');
  for (const ZAN_Opaque::Group& group : opaque->groups) {
    next();
    open('[');
    next();
    writeText(group.types);
    for (const ZAN_Value& leaf : group.leaves) {
      next();
      // Among leaves nil may stand beside the null object.
      if (leaf.isNull() && leaf.identity() != 0) {
        mText += R"({"$null": true})";
      } else {
        write(leaf);
      }
    }
    close(']');
  }
  close(']');
  close('}');
  mText += '}';
}

/// Begins an object whose key says what the value stands for; its end is a bare brace, so that a
/// short one stays on its line.
void ZAN_JsonWriter::writeForm(std::string_view key) {
  mText += "{\"";
  mText += key;
  mText += "\": ";
}

void ZAN_JsonWriter::open(char bracket) {
  mText += bracket;
  ++mIndent;
  mEmpty = true;
}

void ZAN_JsonWriter::next() {
  if (!mEmpty) mText += mOptions.compact ? ", " : ",";
  newLine();
  mEmpty = false;
}

void ZAN_JsonWriter::close(char bracket) {
  --mIndent;
  if (!mEmpty) newLine();
  mText += bracket;
  mEmpty = false;
}

void ZAN_JsonWriter::newLine() {
  if (mOptions.compact) return;
  mText += '\n';
  mText.append(static_cast<std::size_t>(mIndent) * 2, ' ');
}

}  // namespace corvana
