#include "ZANCocoaFramework/ZAN_Json.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_JsonWriter.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"

namespace corvana {

namespace {

using Json = nlohmann::json;

/// A value's own memory sets how much text it may become, so that what it shares cannot be written
/// out without end.
constexpr std::size_t kTextPerByte = 64;
constexpr std::size_t kLeastText = std::size_t{8} << 20;

/// Receives the parts of the text from the parser.
class Handler : public nlohmann::json_sax<Json> {
 public:
  ZAN_JsonBuilder builder;

  bool null() override { return builder.addScalar({}); }
  bool boolean(bool value) override { return builder.addScalar(value); }
  bool number_integer(number_integer_t value) override {
    const bool small = value >= std::numeric_limits<std::int32_t>::min() &&
                       value <= std::numeric_limits<std::int32_t>::max();
    return builder.addScalar(ZAN_Value::integer(value, small ? 'i' : 'q'));
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (value > static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) {
      return builder.addScalar(ZAN_Value::unsignedInteger(value));
    }
    return number_integer(static_cast<number_integer_t>(value));
  }
  bool number_float(number_float_t value, const string_t& text) override {
    if (text.find_first_of(".eE") == string_t::npos) return builder.fail(text + " is too large");
    return builder.addScalar(value);
  }
  bool string(string_t& text) override { return builder.addScalar(ZAN_Value(text)); }
  bool binary(binary_t&) override { return builder.fail("binary data"); }
  bool start_object(std::size_t) override { return builder.openList(true); }
  bool key(string_t& text) override { return builder.addKey(std::move(text)); }
  bool end_object() override { return builder.closeList(); }
  bool start_array(std::size_t) override { return builder.openList(false); }
  bool end_array() override { return builder.closeList(); }
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: …"
    const std::string_view text = error.what();
    const std::size_t end = text.find("] ");
    return builder.fail(std::string(end == std::string_view::npos ? text : text.substr(end + 2)));
  }
};

}  // namespace

Result<std::string> ZAN_Json::jsonWithValue(const ZAN_Value& value, const Options& options) {
  ZAN_JsonWriter writer(options, kLeastText + kTextPerByte * value.footprint());
  writer.write(value);
  if (writer.full())
    return Error{ErrorKind::limit, "shared parts make it too large to be written out"};
  return writer.take();
}

Result<ZAN_Value> ZAN_Json::valueWithJson(std::string_view json) {
  Handler handler;
  const bool done = Json::sax_parse(json.begin(), json.end(), &handler);
  if (handler.builder.error()) return *handler.builder.error();
  if (!done) return Error{ErrorKind::damaged, "it cannot be read as JSON"};
  return handler.builder.take();
}

namespace {

/// Lists within lists while the text is read; a value that is itself an archive may nest anew.
constexpr std::size_t kOpenLimit = 2048;
/// A scalar is an object too, so a list of this depth is as deep as an archive may be.
constexpr int kDepthLimit = archive::kDepthLimit - 1;

}  // namespace

bool ZAN_JsonBuilder::fail(std::string reason, ErrorKind kind) {
  if (!mError) mError = Error{kind, std::move(reason)};
  return false;
}

bool ZAN_JsonBuilder::addScalar(ZAN_Value value) { return add(std::move(value), 0); }

bool ZAN_JsonBuilder::openList(bool isObject) {
  if (mOpen.size() == kOpenLimit) return fail("nested too deeply", ErrorKind::limit);
  mOpen.emplace_back().isObject = isObject;
  return true;
}

bool ZAN_JsonBuilder::addKey(std::string key) {
  mOpen.back().entries.push_back({ZAN_Value(key), {}});
  return true;
}

bool ZAN_JsonBuilder::add(ZAN_Value value, int depth) {
  if (depth > kDepthLimit) return fail("nested too deeply", ErrorKind::limit);
  if (mOpen.empty()) {
    mRoot = std::move(value);
    return true;
  }
  Frame& frame = mOpen.back();
  frame.depth = std::max(frame.depth, depth + 1);
  if (frame.isObject) {
    frame.entries.back().value = std::move(value);
  } else {
    frame.elements.push_back(std::move(value));
  }
  return true;
}

bool ZAN_JsonBuilder::closeList() {
  Frame frame = std::move(mOpen.back());
  mOpen.pop_back();
  int depth = frame.depth;
  if (!frame.isObject) return add(ZAN_Value::array(std::move(frame.elements)), depth);

  std::unordered_set<std::string_view> keys;
  bool isForm = false;
  for (const ZAN_Value::Entry& entry : frame.entries) {
    if (!keys.insert(entry.key.stringView()).second) {
      return fail("\"" + entry.key.string() + "\" stands twice in one object");
    }
    isForm = isForm || entry.key.stringView().starts_with('$');
  }
  if (!isForm) return add(ZAN_Value::dictionaryOf(std::move(frame.entries)), depth);
  auto value = formOf(frame, depth);
  return value ? add(std::move(*value), depth) : false;
}

std::optional<ZAN_Value> ZAN_JsonBuilder::formOf(const Frame& frame, int& depth) {
  const std::string_view key = frame.entries[0].key.stringView();
  const bool typed =
      key == "$number" && frame.entries.size() == 2 && frame.entries[1].key.stringView() == "type";
  std::optional<ZAN_Value> value;
  if (frame.entries.size() == 1 || typed) {
    value =
        valueOfJsonForm(key, frame.entries[0].value, typed ? frame.entries[1].value : ZAN_Value());
  }
  if (!value) fail("an object with \"" + std::string(key) + "\" that is none of the known forms");
  // Data is a scalar whatever it holds.
  if (key == "$archive") depth = 0;
  return value;
}

namespace {

using Form = std::optional<ZAN_Value>;

template <class T>
std::optional<T> numberOf(std::string_view text) {
  T value{};
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return value;
}

template <class T>
Form integerOf(std::string_view text, char letter) {
  const auto value = numberOf<T>(text);
  return value ? Form(ZAN_Value::integer(static_cast<std::int64_t>(*value), letter)) : Form();
}

Form number(const ZAN_Value& inner, const ZAN_Value& type) {
  const std::string_view text = inner.stringView();
  if (type.stringView().size() != 1) return std::nullopt;
  const char letter = type.stringView()[0];
  switch (letter) {
    case 'c':
      return integerOf<std::int8_t>(text, letter);
    case 'B':
    case 'C':
      return integerOf<std::uint8_t>(text, letter);
    case 's':
      return integerOf<std::int16_t>(text, letter);
    case 'S':
      return integerOf<std::uint16_t>(text, letter);
    case 'i':
    case 'l':
      return integerOf<std::int32_t>(text, letter);
    case 'I':
    case 'L':
      return integerOf<std::uint32_t>(text, letter);
    case 'q':
      return integerOf<std::int64_t>(text, letter);
    case 'Q':
      return integerOf<std::uint64_t>(text, letter);
    case 'f':
    case 'd': {
      const auto value = numberOf<double>(text);
      if (!value) return std::nullopt;
      return ZAN_Value::real(
          letter == 'f' ? static_cast<double>(static_cast<float>(*value)) : *value, letter);
    }
    default:
      return std::nullopt;
  }
}

Form date(const ZAN_Value& inner) {
  if (inner.isNumber()) return ZAN_Value::date(inner.doubleValue());
  const auto value = inner.isString() ? numberOf<double>(inner.stringView()) : std::nullopt;
  return value ? Form(ZAN_Value::date(*value)) : Form();
}

Form data(const ZAN_Value& inner) {
  const auto bytes = inner.isString() ? fromBase64(inner.stringView()) : std::nullopt;
  return bytes ? Form(ZAN_Value::data(*bytes)) : Form();
}

Form indexes(const ZAN_Value& inner) {
  std::vector<ZAN_Value::Range> ranges;
  for (const ZAN_Value& range : inner.elements()) {
    const bool good = range.size() == 2 && range.at(0).isNumber() && range.at(1).isNumber() &&
                      range.at(0).integerValue() >= 0 && range.at(1).integerValue() > 0;
    if (!good) return std::nullopt;
    ranges.push_back({range.at(0).unsignedValue(), range.at(1).unsignedValue()});
  }
  return ZAN_Value::indexSet(std::move(ranges));
}

Form pairs(const ZAN_Value& inner) {
  std::vector<ZAN_Value::Entry> entries;
  for (const ZAN_Value& pair : inner.elements()) {
    if (!pair.isArray() || pair.size() != 2) return std::nullopt;
    entries.push_back({pair.at(0), pair.at(1)});
  }
  return ZAN_Value::dictionaryOf(std::move(entries));
}

Form nullObject(const ZAN_Value& inner) {
  if (!inner.boolValue()) return std::nullopt;
  ZAN_Value null;
  null.setScalarIdentity(archive::kNullObject);
  return null;
}

Form object(const ZAN_Value& inner) {
  auto opaque = std::make_shared<ZAN_Opaque>();
  if (!inner["classes"].isArray() || !inner["groups"].isArray() || inner.size() != 2)
    return std::nullopt;
  for (const ZAN_Value& entry : inner["classes"].elements()) {
    if (!entry.at(0).isString() || entry.at(1).letter() != 'i') return std::nullopt;
    opaque->classes.push_back({entry.at(0).string(), entry.at(1).integerValue()});
  }
  if (opaque->classes.empty() || opaque->classes.size() > archive::kClassDepthLimit)
    return std::nullopt;
  for (const ZAN_Value& group : inner["groups"].elements()) {
    const auto parts = group.elements();
    if (parts.empty() || !parts[0].isString()) return std::nullopt;
    opaque->groups.push_back({parts[0].string(), {parts.begin() + 1, parts.end()}});
  }
  return ZAN_Value::opaque(std::move(opaque));
}

}  // namespace

Form valueOfJsonForm(std::string_view key, const ZAN_Value& inner, const ZAN_Value& type) {
  if (key == "$number") return number(inner, type);
  if (key == "$date") return date(inner);
  if (key == "$data") return data(inner);
  if (key == "$archive") return ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(inner));
  if (key == "$object" && inner.isDictionary()) return object(inner);
  if (key == "$null") return nullObject(inner);
  if (!inner.isArray()) return std::nullopt;
  if (key == "$indexes") return indexes(inner);
  if (key == "$dictionary") return pairs(inner);
  if (key == "$set") return ZAN_Value::set({inner.elements().begin(), inner.elements().end()});
  return std::nullopt;
}

}  // namespace corvana
