#include "ZANCocoaFramework/ZAN_PropertyList.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <limits>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
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

namespace {

constexpr std::uint64_t kTrailerSize = 32;
constexpr std::uint64_t kObjectLimit = std::numeric_limits<std::uint32_t>::max();

/// Big-endian UTF-16; halves of pairs that stand alone become U+FFFD.
std::string fromUtf16(std::string_view bytes) {
  const auto unit = [bytes](std::size_t i) -> std::uint32_t {
    if (i + 1 >= bytes.size()) return 0;
    return static_cast<unsigned char>(bytes[i]) << 8U | static_cast<unsigned char>(bytes[i + 1]);
  };
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    std::uint32_t c = unit(i);
    const std::uint32_t low = unit(i + 2);
    if (c >= 0xd800 && c < 0xdc00 && low >= 0xdc00 && low < 0xe000) {
      c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
      i += 2;
    } else if (c >= 0xd800 && c < 0xe000) {
      c = 0xfffd;
    }
    if (c < 0x80) {
      text += static_cast<char>(c);
      continue;
    }
    const unsigned more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned kLead[] = {0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(kLead[more] | c >> (6 * more));
    for (unsigned k = more; k-- > 0;) text += static_cast<char>(0x80 | (c >> (6 * k) & 0x3f));
  }
  return text;
}

}  // namespace

ZAN_BinaryPropertyList::ZAN_BinaryPropertyList(std::span<const std::byte> data)
    : mData(reinterpret_cast<const char*>(data.data()), data.size()), mBudget(data.size()) {}

Result<ZAN_Value> ZAN_BinaryPropertyList::read() {
  ZAN_Value root;
  if (!readTrailer() || !readObject(mTopObject, 0, root)) return mError;
  return root;
}

bool ZAN_BinaryPropertyList::fail(const char* reason, ErrorKind kind) {
  mError = {kind, reason};
  return false;
}

std::uint64_t ZAN_BinaryPropertyList::numberAt(std::uint64_t offset, unsigned width) const {
  std::uint64_t number = 0;
  for (unsigned i = 0; i < width; ++i)
    number = number << 8 | static_cast<unsigned char>(mData[offset + i]);
  return number;
}

bool ZAN_BinaryPropertyList::readTrailer() {
  if (!mData.starts_with(kMagic)) return fail("this is no binary property list");
  if (mData.size() < kMagic.size() + kTrailerSize) return fail("the data is cut short");
  const std::uint64_t trailer = mData.size() - kTrailerSize;
  mOffsetSize = static_cast<unsigned char>(mData[trailer + 6]);
  mReferenceSize = static_cast<unsigned char>(mData[trailer + 7]);
  mObjectCount = numberAt(trailer + 8, 8);
  mTopObject = numberAt(trailer + 16, 8);
  mOffsetTable = numberAt(trailer + 24, 8);
  const bool sizes =
      mOffsetSize >= 1 && mOffsetSize <= 8 && mReferenceSize >= 1 && mReferenceSize <= 8;
  if (!sizes || mOffsetTable < kMagic.size() || mOffsetTable > trailer ||
      mObjectCount > kObjectLimit || mObjectCount > (trailer - mOffsetTable) / mOffsetSize) {
    return fail("the trailer is damaged");
  }
  mObjects.resize(mObjectCount);
  mStates.resize(mObjectCount, State::unread);
  return true;
}

bool ZAN_BinaryPropertyList::readObject(std::uint64_t index, int depth, ZAN_Value& into) {
  if (index >= mObjectCount) return fail("a reference to an object that is not there");
  if (mStates[index] == State::open) return fail("an object within itself");
  if (mStates[index] == State::unread) {
    if (depth == archive::kDepthLimit)
      return fail("objects are nested too deeply", ErrorKind::limit);
    mStates[index] = State::open;
    const std::uint64_t outer = mNext;
    if (!parse(numberAt(mOffsetTable + index * mOffsetSize, mOffsetSize), depth, mObjects[index])) {
      return false;
    }
    mNext = outer;
    mStates[index] = State::done;
  }
  into = mObjects[index];
  return true;
}

bool ZAN_BinaryPropertyList::take(std::uint64_t count, std::string_view& bytes) {
  if (count > mOffsetTable - mNext) return fail("the data is cut short");
  if (count > mBudget) return fail("objects that overlap");
  mBudget -= count;
  bytes = mData.substr(mNext, count);
  mNext += count;
  return true;
}

bool ZAN_BinaryPropertyList::takeNumber(unsigned width, std::uint64_t& number) {
  const std::uint64_t at = mNext;
  std::string_view bytes;
  if (!take(width, bytes)) return false;
  number = numberAt(at, width);
  return true;
}

bool ZAN_BinaryPropertyList::parse(std::uint64_t offset, int depth, ZAN_Value& into) {
  if (offset < kMagic.size() || offset >= mOffsetTable)
    return fail("an object outside of the data");
  mNext = offset;
  std::uint64_t marker = 0;
  if (!takeNumber(1, marker)) return false;
  const auto nibble = static_cast<unsigned>(marker & 15);
  std::uint64_t count = 0;
  std::string_view bytes;
  switch (marker >> 4) {
    case 0x0:
      if (nibble == 8 || nibble == 9) into = nibble == 9;
      return nibble == 0 || nibble == 8 || nibble == 9 || fail("an object of an unknown kind");
    case 0x1:
      return nibble <= 4 ? parseInteger(1U << nibble, into) : fail("a number that is too long");
    case 0x2:
      return parseReal(1U << nibble, into);
    case 0x3: {
      std::uint64_t bits = 0;
      if (nibble != 3) return fail("an object of an unknown kind");
      if (!takeNumber(8, bits)) return false;
      into = ZAN_Value::date(std::bit_cast<double>(bits));
      return true;
    }
    case 0x4:
      if (!parseCount(nibble, count) || !take(count, bytes)) return false;
      into = ZAN_Value::data(bytes);
      return true;
    case 0x5:
      return parseCount(nibble, count) && parseText(count, false, into);
    case 0x6:
      return parseCount(nibble, count) && parseText(count, true, into);
    case 0x8:
      return parseReference(nibble + 1, into);
    case 0xa:
      return parseCount(nibble, count) && parseElements(count, false, depth, into);
    case 0xb:
    case 0xc:
      return parseCount(nibble, count) && parseElements(count, true, depth, into);
    case 0xd:
      return parseCount(nibble, count) && parseDictionary(count, depth, into);
    default:
      return fail("an object of an unknown kind");
  }
}

bool ZAN_BinaryPropertyList::parseCount(unsigned nibble, std::uint64_t& count) {
  count = nibble;
  if (nibble != 15) return true;
  std::uint64_t marker = 0;
  if (!takeNumber(1, marker)) return false;
  if (marker < 0x10 || marker > 0x13) return fail("a count that is no number");
  return takeNumber(1U << (marker & 15), count);
}

bool ZAN_BinaryPropertyList::parseInteger(unsigned width, ZAN_Value& into) {
  std::uint64_t high = 0;
  std::uint64_t number = 0;
  if (width == 16 && !takeNumber(8, high)) return false;
  if (!takeNumber(std::min(width, 8U), number)) return false;
  const auto value = static_cast<std::int64_t>(number);
  if (width == 16 && high == 0) {
    into = static_cast<unsigned long long>(number);
    return true;
  }
  const bool negative = high == std::numeric_limits<std::uint64_t>::max() && value < 0;
  if (width == 16 && !negative) return fail("a number that is too large");
  into = static_cast<long long>(value);
  return true;
}

bool ZAN_BinaryPropertyList::parseReal(unsigned width, ZAN_Value& into) {
  std::uint64_t bits = 0;
  if (width != 4 && width != 8) return fail("a real number of an unknown length");
  if (!takeNumber(width, bits)) return false;
  into = width == 8 ? ZAN_Value(std::bit_cast<double>(bits))
                    : ZAN_Value::real(std::bit_cast<float>(static_cast<std::uint32_t>(bits)), 'f');
  return true;
}

bool ZAN_BinaryPropertyList::parseText(std::uint64_t units, bool wide, ZAN_Value& into) {
  std::string_view bytes;
  if (units > mData.size()) return fail("the data is cut short");
  if (!take(wide ? units * 2 : units, bytes)) return false;
  if (wide) {
    into = ZAN_Value(fromUtf16(bytes));
    return true;
  }
  if (!std::ranges::all_of(bytes, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    return fail("a text that is not ASCII");
  }
  into = ZAN_Value(bytes);
  return true;
}

bool ZAN_BinaryPropertyList::parseReference(unsigned width, ZAN_Value& into) {
  std::uint64_t number = 0;
  if (width > 8) return fail("a reference that is too long");
  if (!takeNumber(width, number)) return false;
  into = ZAN_Value::dictionaryOf(
      {{mKeys.text(kReferenceKey), static_cast<unsigned long long>(number)}});
  return true;
}

bool ZAN_BinaryPropertyList::parseElements(std::uint64_t count, bool isSet, int depth,
                                           ZAN_Value& into) {
  const std::uint64_t first = mNext;
  std::string_view bytes;
  if (count > mData.size()) return fail("the data is cut short");
  if (!take(count * mReferenceSize, bytes)) return false;
  std::vector<ZAN_Value> elements(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t index = numberAt(first + i * mReferenceSize, mReferenceSize);
    if (!readObject(index, depth + 1, elements[i])) return false;
  }
  into = isSet ? ZAN_Value::set(std::move(elements)) : ZAN_Value::array(std::move(elements));
  return true;
}

bool ZAN_BinaryPropertyList::parseDictionary(std::uint64_t count, int depth, ZAN_Value& into) {
  const std::uint64_t first = mNext;
  std::string_view bytes;
  if (count > mData.size()) return fail("the data is cut short");
  if (!take(count * 2 * mReferenceSize, bytes)) return false;
  std::vector<ZAN_Value::Entry> entries(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t key = numberAt(first + i * mReferenceSize, mReferenceSize);
    const std::uint64_t value = numberAt(first + (count + i) * mReferenceSize, mReferenceSize);
    if (!readObject(key, depth + 1, entries[i].key)) return false;
    if (!entries[i].key.isString()) return fail("a key that is no text");
    if (!readObject(value, depth + 1, entries[i].value)) return false;
  }
  into = ZAN_Value::dictionaryOf(std::move(entries));
  return true;
}

}  // namespace corvana
