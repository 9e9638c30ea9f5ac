#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"

#include <algorithm>
#include <array>

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
