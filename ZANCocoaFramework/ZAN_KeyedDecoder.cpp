#include "ZANCocoaFramework/ZAN_KeyedDecoder.h"

#include <array>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

using Kind = ZAN_Value::Kind;

namespace {

constexpr std::size_t kLeastBudget = 65536;
constexpr std::uint64_t kIndexLimit = std::uint64_t{1} << 32;

/// Numbers of seven bits each, the least significant first, the highest bit set on all but the
/// last.
bool readVarint(std::span<const std::byte>& bytes, std::uint64_t& number) {
  number = 0;
  for (unsigned shift = 0; shift < 63 && !bytes.empty(); shift += 7) {
    const auto byte = static_cast<std::uint64_t>(bytes.front());
    bytes = bytes.subspan(1);
    number |= (byte & 0x7f) << shift;
    if ((byte & 0x80) == 0) return true;
  }
  return false;
}

bool isRange(std::uint64_t location, std::uint64_t length) {
  return length > 0 && location < kIndexLimit && length <= kIndexLimit - location;
}

}  // namespace

ZAN_KeyedDecoder::ZAN_KeyedDecoder(const ZAN_Value& propertyList)
    : mList(propertyList),
      mEntries(propertyList["$objects"].elements()),
      mObjects(mEntries.size()),
      mStates(mEntries.size(), State::unread),
      mBudget(kLeastBudget + propertyList.footprint() / 4) {}

bool ZAN_KeyedDecoder::fail(const char* reason, ErrorKind kind) {
  mError = {kind, reason};
  return false;
}

bool ZAN_KeyedDecoder::spend(std::size_t elements) {
  if (elements > mBudget) return fail("lists that are named too often", ErrorKind::limit);
  mBudget -= elements;
  return true;
}

Result<ZAN_Value> ZAN_KeyedDecoder::decode() {
  const ZAN_Value& top = mList["$top"];
  if (!top.isDictionary() || top.empty())
    return Error{ErrorKind::damaged, "the archive holds no object"};
  ZAN_Value value;
  const ZAN_Value& root =
      top.contains("root") || top.size() > 1 ? top["root"] : top.entries()[0].value;
  if (top.contains("root") || top.size() == 1) {
    if (!resolve(root, 0, value)) return mError;
    return value;
  }
  if (!readPlain(top, 0, value)) return mError;
  return value;
}

std::optional<std::uint64_t> ZAN_KeyedDecoder::referenceOf(const ZAN_Value& value) {
  if (!value.isDictionary() || value.size() != 1) return std::nullopt;
  const ZAN_Value& number = value[ZAN_BinaryPropertyList::kReferenceKey];
  if (!number.isNumber() || number.isReal()) return std::nullopt;
  return number.unsignedValue();
}

bool ZAN_KeyedDecoder::resolve(const ZAN_Value& value, int depth, ZAN_Value& into) {
  if (depth > archive::kDepthLimit) return fail("objects are nested too deeply", ErrorKind::limit);
  const auto reference = referenceOf(value);
  return reference ? readEntry(*reference, depth, into) : readPlain(value, depth, into);
}

bool ZAN_KeyedDecoder::readEntry(std::uint64_t index, int depth, ZAN_Value& into) {
  if (index >= mEntries.size()) return fail("a reference to an object that is not there");
  if (index == 0) return true;
  if (mStates[index] == State::open) return fail("an object within itself");
  if (mStates[index] == State::unread) {
    mStates[index] = State::open;
    const ZAN_Value& entry = mEntries[index];
    const bool isObject = entry.isDictionary() && entry.contains("$class");
    if (!(isObject ? readObject(entry, depth, mObjects[index])
                   : resolve(entry, depth + 1, mObjects[index]))) {
      return false;
    }
    mStates[index] = State::done;
  }
  into = mObjects[index];
  return true;
}

bool ZAN_KeyedDecoder::readPlain(const ZAN_Value& value, int depth, ZAN_Value& into) {
  if (depth > archive::kDepthLimit) return fail("objects are nested too deeply", ErrorKind::limit);
  if (!value.isArray() && !value.isSet() && !value.isDictionary()) {
    into = value;
    return true;
  }
  if (const auto found = mPlain.find(value.identity()); found != mPlain.end()) {
    into = found->second;
    return true;
  }
  std::vector<ZAN_Value> elements(value.elements().size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (!resolve(value.at(i), depth + 1, elements[i])) return false;
  }
  std::vector<ZAN_Value::Entry> entries(value.entries().begin(), value.entries().end());
  for (ZAN_Value::Entry& entry : entries) {
    ZAN_Value resolved;
    if (!resolve(entry.value, depth + 1, resolved)) return false;
    entry.value = std::move(resolved);
  }
  into = value.isDictionary() ? ZAN_Value::dictionaryOf(std::move(entries))
         : value.isSet()      ? ZAN_Value::set(std::move(elements))
                              : ZAN_Value::array(std::move(elements));
  mPlain.emplace(value.identity(), into);
  return true;
}

bool ZAN_KeyedDecoder::readObject(const ZAN_Value& entry, int depth, ZAN_Value& into) {
  const auto reference = referenceOf(entry["$class"]);
  if (!reference || *reference >= mEntries.size()) return fail("an object without a class");
  const ZAN_Value& classEntry = mEntries[*reference];
  const ZAN_Value& className = classEntry["$classname"];
  if (!className.isString()) return fail("a class without a name");

  constexpr std::string_view kMutable = "NSMutable";
  const std::string_view name = className.stringView();
  const std::string plain = name.starts_with(kMutable)
                                ? "NS" + std::string(name.substr(kMutable.size()))
                                : std::string(name);
  const auto known = [&](std::string_view list) {
    return list.find(" " + plain + " ") != std::string_view::npos;
  };
  if (known(" NSString NSData NSArray NSDictionary NSSet NSIndexSet ")) {
    if (!readOfClass(plain, entry, depth, into)) return false;
    into.setMutable(name != plain);
    return true;
  }
  if (name == plain && known(" NSNumber NSDate NSNull "))
    return readOfClass(plain, entry, depth, into);
  return readOpaque(entry, classEntry, depth, into);
}

bool ZAN_KeyedDecoder::readOfClass(std::string_view name, const ZAN_Value& entry, int depth,
                                   ZAN_Value& into) {
  static constexpr std::array<std::string_view, 2> kText{"NS.string", "NS.bytes"};
  static constexpr std::array<std::string_view, 2> kData{"NS.data", "NS.bytes"};
  static constexpr std::array<std::string_view, 3> kNumber{"NS.boolval", "NS.intval", "NS.dblval"};
  static constexpr std::array<std::string_view, 1> kTime{"NS.time"};
  if (name == "NSNull") return true;
  if (name == "NSString") return readScalar(entry, kText, Kind::string, depth, into);
  if (name == "NSData") return readScalar(entry, kData, Kind::data, depth, into);
  if (name == "NSNumber") return readScalar(entry, kNumber, Kind::number, depth, into);
  if (name == "NSDate") {
    ZAN_Value time;
    if (!readScalar(entry, kTime, Kind::number, depth, time)) return false;
    into = ZAN_Value::date(time.doubleValue());
    return true;
  }
  if (name == "NSDictionary") return readDictionary(entry, depth, into);
  if (name == "NSIndexSet") return readIndexSet(entry, depth, into);
  std::vector<ZAN_Value> elements;
  if (!readList(entry, "NS.object", depth, elements)) return false;
  into =
      name == "NSSet" ? ZAN_Value::set(std::move(elements)) : ZAN_Value::array(std::move(elements));
  return true;
}

bool ZAN_KeyedDecoder::readScalar(const ZAN_Value& entry, std::span<const std::string_view> keys,
                                  Kind kind, int depth, ZAN_Value& into) {
  for (const std::string_view key : keys) {
    if (!entry.contains(key)) continue;
    if (!resolve(entry[key], depth + 1, into)) return false;
    if (kind == Kind::string && into.isData()) {
      const std::string_view text(reinterpret_cast<const char*>(into.bytes().data()),
                                  into.bytes().size());
      if (!isUtf8(text)) return fail("a text that is not UTF-8");
      into = ZAN_Value(text);
    }
    return into.kind() == kind || fail("an object that holds other values than its class");
  }
  return fail("an object without its value");
}

bool ZAN_KeyedDecoder::readList(const ZAN_Value& entry, std::string_view prefix, int depth,
                                std::vector<ZAN_Value>& list) {
  const std::string plural = std::string(prefix) + "s";
  std::span<const ZAN_Value> items = entry[plural].elements();
  std::vector<ZAN_Value> numbered;
  if (!entry.contains(plural)) {
    // Older writers gave each element a key of its own.
    for (;;) {
      const ZAN_Value& item = entry[std::string(prefix) + "." + std::to_string(numbered.size())];
      if (item.isNull()) break;
      numbered.push_back(item);
    }
    items = numbered;
  } else if (!entry[plural].isArray()) {
    return fail("an object that holds other values than its class");
  }
  if (!spend(items.size())) return false;
  list.resize(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (!resolve(items[i], depth + 1, list[i])) return false;
  }
  return true;
}

bool ZAN_KeyedDecoder::readDictionary(const ZAN_Value& entry, int depth, ZAN_Value& into) {
  std::vector<ZAN_Value> keys;
  std::vector<ZAN_Value> values;
  if (!readList(entry, "NS.key", depth, keys) || !readList(entry, "NS.object", depth, values))
    return false;
  if (keys.size() != values.size())
    return fail("a dictionary with more keys than values, or fewer");
  std::vector<ZAN_Value::Entry> entries(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i)
    entries[i] = {std::move(keys[i]), std::move(values[i])};
  into = ZAN_Value::dictionaryOf(std::move(entries));
  return true;
}

bool ZAN_KeyedDecoder::readIndexSet(const ZAN_Value& entry, int depth, ZAN_Value& into) {
  const std::uint64_t count = entry["NSRangeCount"].unsignedValue();
  std::vector<ZAN_Value::Range> ranges;
  if (count == 1) {
    ranges.push_back({entry["NSLocation"].unsignedValue(), entry["NSLength"].unsignedValue()});
  } else if (count > 1) {
    ZAN_Value data;
    if (!resolve(entry["NSRangeData"], depth + 1, data)) return false;
    std::span<const std::byte> bytes = data.bytes();
    if (count > bytes.size() / 2 || !spend(count))
      return fail("more ranges announced than there are");
    for (std::uint64_t i = 0; i < count; ++i) {
      ZAN_Value::Range& range = ranges.emplace_back();
      if (!readVarint(bytes, range.location) || !readVarint(bytes, range.length)) {
        return fail("the ranges are cut short");
      }
    }
    if (!bytes.empty()) return fail("bytes after the last range");
  }
  for (const ZAN_Value::Range& range : ranges) {
    if (!isRange(range.location, range.length)) return fail("a range of indexes that cannot be");
  }
  into = ZAN_Value::indexSet(std::move(ranges));
  return true;
}

bool ZAN_KeyedDecoder::readOpaque(const ZAN_Value& entry, const ZAN_Value& classEntry, int depth,
                                  ZAN_Value& into) {
  auto opaque = std::make_shared<ZAN_Opaque>();
  const auto names = classEntry["$classes"].elements();
  std::size_t cost =
      4 + entry.size() + names.size() * 3 + classEntry["$classname"].stringView().size() / 16;
  for (const ZAN_Value& name : names) cost += name.stringView().size() / 16;
  if (!spend(cost)) return false;
  for (const ZAN_Value& name : names) {
    if (name.isString()) opaque->classes.push_back({name.string(), 0});
  }
  if (opaque->classes.empty()) opaque->classes.push_back({classEntry["$classname"].string(), 0});
  std::vector<ZAN_Value::Entry> keys;
  for (const ZAN_Value::Entry& item : entry.entries()) {
    if (item.key.stringView() == "$class") continue;
    keys.push_back({item.key, {}});
    if (!resolve(item.value, depth + 1, keys.back().value)) return false;
  }
  opaque->groups.push_back({"keyed", {ZAN_Value::dictionaryOf(std::move(keys))}});
  into = ZAN_Value::opaque(std::move(opaque));
  return true;
}

}  // namespace corvana
