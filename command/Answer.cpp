#include "command/Answer.h"

#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"

namespace corvana {

namespace {

ZAN_Value withPlainDates(const ZAN_Value& value) {
  if (const auto date = value.asDate()) return *date;
  if (value.isArray()) {
    std::vector<ZAN_Value> elements;
    for (const ZAN_Value& one : value.elements()) elements.push_back(withPlainDates(one));
    return ZAN_Value::array(std::move(elements));
  }
  if (value.isDictionary()) {
    ZAN_Value dictionary = ZAN_Value::dictionary();
    for (const auto& entry : value.entries())
      dictionary.setValue(entry.key.stringView(), withPlainDates(entry.value));
    return dictionary;
  }
  return value;
}

bool isThere(const ZAN_Value& value) {
  if (value.isNumber()) return value.doubleValue() > 0;
  return value.isDate() || !value.stringView().empty() || !value.empty();
}

const ZAN_Value& valueAt(const ZAN_Value& record, std::string_view name) {
  const ZAN_Value* value = &record;
  while (!name.empty()) {
    const std::string_view key = name.substr(0, name.find('.'));
    value = &value->value(key);
    name.remove_prefix(std::min(name.size(), key.size() + 1));
  }
  return *value;
}

/// Of the brace that the pattern begins with.
std::size_t closingBrace(std::string_view pattern) {
  std::size_t depth = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == '{') ++depth;
    if (pattern[i] == '}' && --depth == 0) return i;
  }
  return pattern.size();
}

std::string printableLines(std::string_view rest) {
  std::string text;
  while (!rest.empty()) {
    const std::size_t line = rest.find('\n');
    text += printable(rest.substr(0, line)) + '\n';
    rest.remove_prefix(line == std::string_view::npos ? rest.size() : line + 1);
  }
  return text;
}

}  // namespace

Answer Answer::ofText(std::string lines) {
  Answer answer;
  answer.text = std::move(lines);
  return answer;
}

Answer wrongWords(const Error& error) {
  Answer answer(error);
  answer.code = kWrongWords;
  return answer;
}

int Writer::finish(const Answer& answer) const {
  if (mJson && answer.value) {
    mConsole.out << jsonText(*answer.value);
  } else {
    if (!answer.reason.empty()) complain(answer.reason);
    mConsole.out << answer.text;
  }
  return answer.code;
}

void Writer::tell(const ZAN_Value& event, std::string_view line) const {
  if (mJson) {
    mConsole.out << jsonText(event, true) << std::flush;
  } else {
    mConsole.out << printable(line) << std::endl;
  }
}

void Writer::complain(std::string_view reason) const {
  mConsole.err << "corvana9: " << reason << std::endl;
}

TextForm::TextForm(const ZAN_DateUtils& calendar) {
  const auto date = [&](const char* pattern) {
    return [calendar, pattern](const ZAN_Value& value) {
      const auto date = value.isNumber() ? value.doubleValue() : value.asDate();
      return date ? calendar.format(*date, pattern) : std::string("at some time");
    };
  };
  with("date", date("%a %Y-%m-%d %H:%M"));
  with("seconds", date("%a %Y-%m-%d %H:%M:%S"));
  with("clock", date("%H:%M:%S"));
  with("action", [](const ZAN_Value& value) {
    return namedAction(value.string("title"), value.integer("ref"));
  });
  with("lines", [](const ZAN_Value& value) { return printableLines(value.stringView()); });
}

TextForm& TextForm::with(std::string format, Format words) {
  mFormats.insert_or_assign(std::move(format), std::move(words));
  return *this;
}

std::string TextForm::filled(std::string_view pattern, const ZAN_Value& value,
                             std::size_t count) const {
  std::string text;
  while (!pattern.empty()) {
    const std::size_t open = std::min(pattern.find('{'), pattern.size());
    text += pattern.substr(0, open);
    pattern.remove_prefix(open);
    if (pattern.empty()) break;
    const std::size_t close = closingBrace(pattern);
    text += field(pattern.substr(1, close - 1), value, count);
    pattern.remove_prefix(std::min(pattern.size(), close + 1));
  }
  return text;
}

std::string TextForm::field(std::string_view field, const ZAN_Value& record,
                            std::size_t count) const {
  const std::size_t end = field.find_first_of(":?!*");
  const std::string_view name = field.substr(0, end);
  if (name == "#") return std::to_string(count);
  const ZAN_Value& value = valueAt(record, name);
  if (end == std::string_view::npos)
    return value.isNumber() ? std::to_string(value.integerValue()) : printable(value.stringView());
  const std::string_view rest = field.substr(end + 1);
  switch (field[end]) {
    case '?':
      return isThere(value) ? filled(rest, record, count) : std::string();
    case '!':
      return isThere(value) ? std::string() : filled(rest, record, count);
    case '*': {
      std::string text;
      std::size_t number = 0;
      for (const ZAN_Value& element : value.elements()) text += filled(rest, element, ++number);
      return text;
    }
    default: {
      const auto format = mFormats.find(rest);
      return format == mFormats.end() ? std::string() : format->second(value);
    }
  }
}

std::string printable(std::string_view text) { return ZAN_StringUtils::oneLine(text); }

std::string jsonText(const ZAN_Value& value, bool compact) {
  const auto json =
      ZAN_Json::jsonWithValue(withPlainDates(value), {.compact = compact, .plain = true});
  return (json ? *json : "null") + "\n";
}

std::string namedAction(const std::string& title, std::int64_t reference) {
  const std::string shown = title.empty() ? "(no such action)" : printable(title);
  return shown + " [" + std::to_string(reference) + "]";
}

}  // namespace corvana
