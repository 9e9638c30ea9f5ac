#include "ZANCocoaFramework/ZAN_Json.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "ZANCocoaFramework/ZAN_JsonReader.h"
#include "ZANCocoaFramework/ZAN_JsonWriter.h"

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

}  // namespace corvana
