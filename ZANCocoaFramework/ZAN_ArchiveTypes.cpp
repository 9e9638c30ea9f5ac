#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"

#include <algorithm>
#include <array>

#include "ZANCocoaFramework/ZAN_ArchiveDecoder.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"

// Objects of classes that have no value of their own: read whatever they hold.

namespace corvana::archive {

namespace {

using enum KnownClass;

constexpr std::array<ClassLayout, kKnownClasses> kLayouts{{
    {"", 0, none},
    {"NSObject", 0, none},
    {"NSString", 1, object},
    {"NSMutableString", 1, string},
    {"NSData", 0, object},
    {"NSMutableData", 0, data},
    {"NSDate", 0, object},
    {"NSValue", 0, object},
    {"NSNumber", 0, valueObject},
    {"NSArray", 0, object},
    {"NSMutableArray", 0, array},
    {"NSDictionary", 0, object},
    {"NSMutableDictionary", 0, dictionary},
    {"NSSet", 0, object},
    {"NSMutableSet", 0, set},
    {"NSNull", 0, object},
    {"NSIndexSet", 0, object},
    {"NSMutableIndexSet", 0, indexSet},
}};

class TypeParser {
 public:
  explicit TypeParser(std::string_view types) : mRest(types) {}

  bool atEnd() const { return mRest.empty(); }

  std::optional<Type> parse(int depth) {
    if (mRest.empty() || depth > kTypeDepthLimit) return std::nullopt;
    const char code = take();
    if (code == '[') return parseRun(depth);
    if (code == '{') return parseFields(depth);
    if (std::string_view("cCBsSiIlLqQfd@#*:%+").find(code) == std::string_view::npos) {
      return std::nullopt;
    }
    return Type{code, 0, {}};
  }

 private:
  char take() {
    const char c = mRest.front();
    mRest.remove_prefix(1);
    return c;
  }

  bool takeIf(char c) {
    if (mRest.empty() || mRest.front() != c) return false;
    mRest.remove_prefix(1);
    return true;
  }

  std::optional<Type> parseRun(int depth) {
    std::uint64_t count = 0;
    std::size_t digits = 0;
    for (; !mRest.empty() && mRest.front() >= '0' && mRest.front() <= '9' && digits < 10;
         ++digits) {
      count = count * 10 + static_cast<std::uint64_t>(take() - '0');
    }
    auto element = digits > 0 && count <= 0x7fffffff ? parse(depth + 1) : std::nullopt;
    if (!element || !takeIf(']')) return std::nullopt;
    Type run{'[', static_cast<std::uint32_t>(count), {}};
    run.parts.push_back(std::move(*element));
    const bool emptyBytes = depth == 0 && atEnd() && run.isBytes();
    return count > 0 || emptyBytes ? std::optional(std::move(run)) : std::nullopt;
  }

  std::optional<Type> parseFields(int depth) {
    const std::size_t border = mRest.find_first_of("=[]{}()");
    if (border != std::string_view::npos && mRest[border] == '=') mRest.remove_prefix(border + 1);
    Type structure{'{', 0, {}};
    while (!takeIf('}')) {
      auto field = parse(depth + 1);
      if (!field) return std::nullopt;
      structure.parts.push_back(std::move(*field));
    }
    return structure.parts.empty() ? std::nullopt : std::optional(std::move(structure));
  }

  std::string_view mRest;
};

}  // namespace

const ClassLayout& layout(KnownClass known) { return kLayouts[static_cast<std::size_t>(known)]; }

KnownClass knownClass(std::string_view name, std::int64_t version, KnownClass super) {
  const auto found = std::ranges::find_if(kLayouts, [&](const ClassLayout& candidate) {
    return candidate.name == name && candidate.version == version && candidate.super == super;
  });
  return found == kLayouts.end() ? none : static_cast<KnownClass>(found - kLayouts.begin());
}

KnownClass classOf(const ZAN_Value& value) {
  const bool isMutable = value.isMutable();
  switch (value.kind()) {
    case ZAN_Value::Kind::null:
      return null;
    case ZAN_Value::Kind::number:
      return number;
    case ZAN_Value::Kind::string:
      return isMutable ? mutableString : string;
    case ZAN_Value::Kind::data:
      return isMutable ? mutableData : data;
    case ZAN_Value::Kind::date:
      return date;
    case ZAN_Value::Kind::array:
      return isMutable ? mutableArray : array;
    case ZAN_Value::Kind::dictionary:
      return isMutable ? mutableDictionary : dictionary;
    case ZAN_Value::Kind::set:
      return isMutable ? mutableSet : set;
    case ZAN_Value::Kind::indexSet:
      return isMutable ? mutableIndexSet : indexSet;
    case ZAN_Value::Kind::opaque:
      break;
  }
  return none;
}

bool isNumberLetter(char letter) {
  return std::string_view("BCILQScdfilqs").find(letter) != std::string_view::npos;
}

std::uint64_t Type::leaves() const {
  if (code != '[' && code != '{') return 1;
  if (isBytes()) return 1;
  std::uint64_t sum = 0;
  for (const Type& part : parts) sum += part.leaves();
  constexpr std::uint64_t kMany = std::uint64_t{1} << 40;
  if (code == '[') sum = sum > kMany / count ? kMany : sum * count;
  return std::min(kMany, sum);
}

std::optional<std::vector<Type>> parseTypes(std::string_view types) {
  if (types.empty() || types.size() > kTypeLengthLimit) return std::nullopt;
  TypeParser parser(types);
  std::vector<Type> list;
  while (!parser.atEnd()) {
    auto type = parser.parse(list.empty() ? 0 : 1);
    if (!type) return std::nullopt;
    list.push_back(std::move(*type));
  }
  return list;
}

}  // namespace corvana::archive

namespace corvana {

using archive::Type;

bool ZAN_ArchiveDecoder::charge(std::size_t bytes) {
  if (bytes > mBudget) {
    return mStream.fail("objects of unknown classes need too much memory", ErrorKind::limit);
  }
  mBudget -= bytes;
  return true;
}

bool ZAN_ArchiveDecoder::readOpaque(std::int32_t classIndex, ZAN_Value& into) {
  auto opaque = std::make_shared<ZAN_Opaque>();
  for (std::int32_t i = classIndex; i >= 0; i = mClasses[static_cast<std::size_t>(i)].super) {
    const ClassEntry& entry = mClasses[static_cast<std::size_t>(i)];
    const std::string_view name = mStream.shared(entry.name).bytes;
    if (!charge(sizeof(ZAN_Opaque::ClassName) + name.size())) return false;
    opaque->classes.push_back({std::string(name), entry.version});
  }
  while (!mStream.takeIf(archive::kEnd)) {
    std::int32_t string = 0;
    const std::vector<Type>* types = nullptr;
    if (!mStream.readShared(string)) return false;
    if (string == ZAN_ArchiveStream::kNoString) return mStream.fail("values without a type");
    if (!mStream.parsedTypes(string, types)) return false;
    std::uint64_t count = 0;
    for (const Type& type : *types) count += type.leaves();
    if (count > mStream.remaining() + 1) return mStream.fail("the data is cut short");
    const std::string_view text = mStream.shared(string).bytes;
    if (!charge(sizeof(ZAN_Opaque::Group) + text.size() + count * sizeof(ZAN_Value))) return false;
    // Leaves must not move while they are read: references remember where they are.
    auto& group = opaque->groups.emplace_back(ZAN_Opaque::Group{std::string(text), {}});
    group.leaves.reserve(count);
    for (const Type& type : *types) {
      if (!readLeaves(type, group.leaves)) return false;
    }
  }
  into = ZAN_Value::opaque(std::move(opaque));
  return true;
}

bool ZAN_ArchiveDecoder::readLeaves(const Type& type, std::vector<ZAN_Value>& leaves) {
  if (type.isBytes()) {
    std::string_view bytes;
    if (!mStream.readBytes(type.count, bytes)) return false;
    leaves.push_back(ZAN_Value::data(bytes));
    return true;
  }
  if (type.code != '[' && type.code != '{') return readLeaf(type.code, leaves.emplace_back());
  const std::uint32_t times = type.code == '[' ? type.count : 1;
  for (std::uint32_t i = 0; i < times; ++i) {
    for (const Type& part : type.parts) {
      if (!readLeaves(part, leaves)) return false;
    }
  }
  return true;
}

bool ZAN_ArchiveDecoder::readLeaf(char code, ZAN_Value& into) {
  std::int32_t string = 0;
  std::uint8_t head = 0;
  std::size_t length = 0;
  std::string_view bytes;
  switch (code) {
    case '@':
      return readObject(into, Position::leaf);
    case '#':
      return readClassLeaf(into);
    case '*':
      return readCString(string) && sharedText(string, into);
    case ':':
    case '%':
      return mStream.readShared(string) && sharedText(string, into);
    case '+':
      if (!mStream.readByte(head)) return false;
      if (head == archive::kNil) return true;
      if (!mStream.readLength(head, length) || !mStream.readBytes(length, bytes)) return false;
      into = ZAN_Value::data(bytes);
      return true;
    default:
      return readScalar(code, into);
  }
}

bool ZAN_ArchiveDecoder::readClassLeaf(ZAN_Value& into) {
  std::int32_t index = 0;
  if (!readClass(index)) return false;
  if (index < 0) return true;
  std::vector<ZAN_Value> chain;
  for (; index >= 0; index = mClasses[static_cast<std::size_t>(index)].super) {
    const ClassEntry& entry = mClasses[static_cast<std::size_t>(index)];
    ZAN_Value name;
    if (!charge(16 * sizeof(ZAN_Value)) || !sharedText(entry.name, name)) return false;
    chain.push_back(ZAN_Value::array({std::move(name), entry.version}));
  }
  into = ZAN_Value::array(std::move(chain));
  return true;
}

/// Many leaves may name one long string, so they share it.
bool ZAN_ArchiveDecoder::sharedText(std::int32_t string, ZAN_Value& into) {
  if (string == ZAN_ArchiveStream::kNoString) return true;
  const auto index = static_cast<std::size_t>(string);
  if (index >= mTexts.size()) mTexts.resize(index + 1);
  if (mTexts[index].isNull()) {
    const std::string_view text = mStream.shared(string).bytes;
    if (!isUtf8(text)) return mStream.fail("a name that is not UTF-8");
    mTexts[index] = ZAN_Value(text);
  }
  into = mTexts[index];
  return true;
}

}  // namespace corvana
