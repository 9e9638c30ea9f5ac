#include "command/Arguments.h"

#include <algorithm>
#include <charconv>

namespace corvana {

Arguments::Arguments(std::vector<std::string> words) {
  const auto border = std::find(words.begin(), words.end(), "--");
  mFlags.assign(words.begin(), border);
  if (border != words.end()) mBehind.assign(border + 1, words.end());
}

bool Arguments::flag(std::string_view name) { return std::erase(mFlags, name) > 0; }

std::optional<std::string> Arguments::option(std::string_view name) {
  auto values = options(name);
  return values.empty() ? std::nullopt : std::optional(std::move(values.back()));
}

std::vector<std::string> Arguments::options(std::string_view name) {
  std::vector<std::string> values;
  const std::string joined = std::string(name) + "=";
  for (auto it = mFlags.begin(); it != mFlags.end();) {
    if (it->starts_with(joined)) {
      values.push_back(it->substr(joined.size()));
      it = mFlags.erase(it);
    } else if (*it == name) {
      it = mFlags.erase(it);
      if (it == mFlags.end()) {
        complain(std::string(name) + " needs a value");
      } else {
        values.push_back(std::move(*it));
        it = mFlags.erase(it);
      }
    } else {
      ++it;
    }
  }
  return values;
}

std::optional<std::int64_t> Arguments::number(std::string_view name, std::int64_t least,
                                              std::int64_t most) {
  const auto text = option(name);
  if (!text) return std::nullopt;
  std::int64_t value = 0;
  const char* end = text->data() + text->size();
  const auto [stop, error] = std::from_chars(text->data(), end, value);
  if (error != std::errc() || stop != end || value < least || value > most) {
    complain(std::string(name) + " wants a number from " + std::to_string(least) + " to " +
             std::to_string(most) + ", not \"" + *text + "\"");
    return std::nullopt;
  }
  return value;
}

void Arguments::complain(std::string reason) {
  if (mComplaint.empty()) mComplaint = std::move(reason);
}

Result<std::vector<std::string>> Arguments::words(std::size_t least, std::size_t most) {
  if (!mComplaint.empty()) return Error{ErrorKind::refused, mComplaint};
  for (const std::string& word : mFlags) {
    // "-" alone stands for the standard streams, and a negative number is a value.
    if (word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9')) {
      return Error{ErrorKind::refused, "unknown option " + word};
    }
  }
  std::vector<std::string> all = std::move(mFlags);
  all.insert(all.end(), mBehind.begin(), mBehind.end());
  if (all.size() < least) return Error{ErrorKind::refused, "something is missing"};
  if (all.size() > most) return Error{ErrorKind::refused, "one word too many: " + all[most]};
  return all;
}

}  // namespace corvana
