#include "ZANCocoaFramework/ZAN_StringUtils.h"

#include <absl/time/civil_time.h>
#include <absl/time/time.h>

#include <QDateTime>
#include <QLocale>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace corvana {

namespace {

using Argument = ZAN_StringUtils::Argument;

constexpr int kMaximalPrecision = 30;
constexpr std::size_t kMaximalWidth = 60;

std::string fixed(double value, int precision) {
  // The largest double has 309 digits before the point.
  char digits[309 + kMaximalPrecision + 8];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, precision);
  return {digits, end.ptr};
}

std::string shortest(double value) {
  char digits[40];
  return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

std::string truncated(double value) {
  if (std::isnan(value)) return "0";
  constexpr double kBound = 9223372036854775808.0;
  if (value >= kBound) return std::to_string(std::numeric_limits<std::int64_t>::max());
  if (value <= -kBound) return std::to_string(std::numeric_limits<std::int64_t>::min());
  return std::to_string(static_cast<std::int64_t>(value));
}

struct Placeholder {
  std::optional<std::size_t> position;  ///< from 1
  char kind = '@';
  bool leftAligned = false;
  bool zeroPadded = false;
  std::size_t width = 0;
  int precision = -1;
};

/// Reads a decimal number at `at` and passes it; numbers beyond any use are held at 9999.
std::size_t number(std::string_view text, std::size_t& at) {
  std::size_t value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    value = std::min<std::size_t>(9999, value * 10 + static_cast<std::size_t>(text[at] - '0'));
  }
  return value;
}

/// The placeholder behind the percent sign before `at`; `at` is moved behind it only when there is
/// one.
std::optional<Placeholder> placeholder(std::string_view text, std::size_t& at) {
  Placeholder result;
  std::size_t next = at;
  if (const std::size_t position = number(text, next);
      next > at && next < text.size() && text[next] == '$') {
    result.position = position;
    ++next;
  } else {
    next = at;
  }
  for (; next < text.size() && (text[next] == '-' || text[next] == '0'); ++next) {
    (text[next] == '-' ? result.leftAligned : result.zeroPadded) = true;
  }
  result.width = std::min(kMaximalWidth, number(text, next));
  if (next < text.size() && text[next] == '.') {
    ++next;
    result.precision =
        static_cast<int>(std::min<std::size_t>(kMaximalPrecision, number(text, next)));
  }
  while (next < text.size() && (text[next] == 'l' || text[next] == 'q')) ++next;
  if (next == text.size()) return std::nullopt;
  switch (text[next]) {
    case '@':
    case 's':
      result.kind = '@';
      break;
    case 'd':
    case 'i':
    case 'u':
      result.kind = 'd';
      break;
    case 'f':
      result.kind = 'f';
      break;
    default:
      return std::nullopt;
  }
  at = next + 1;
  return result;
}

std::string filled(const Placeholder& placeholder, const Argument& argument) {
  struct Writer {
    const Placeholder& placeholder;
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(std::int64_t value) const {
      if (placeholder.kind == 'f') return (*this)(static_cast<double>(value));
      return std::to_string(value);
    }
    std::string operator()(double value) const {
      if (placeholder.kind == 'd') return truncated(value);
      if (placeholder.kind == '@') return shortest(value);
      return fixed(value, placeholder.precision < 0 ? 6 : placeholder.precision);
    }
  };
  std::string text = std::visit(Writer{placeholder}, argument.value());
  if (text.size() >= placeholder.width) return text;
  const std::size_t missing = placeholder.width - text.size();
  if (placeholder.leftAligned) return text.append(missing, ' ');
  const bool isNumber = placeholder.kind != '@' && argument.value().index() != 0;
  if (!placeholder.zeroPadded || !isNumber) return text.insert(0, missing, ' ');
  return text.insert(text.starts_with('-') ? 1 : 0, missing, '0');
}

/// The locale of a region name in POSIX or BCP 47 form; nothing for "C", empty and unknown names.
std::optional<QLocale> localeOf(std::string_view region) {
  region = region.substr(0, region.find_first_of(".@"));
  if (region.empty() || region == "C" || region == "POSIX") return std::nullopt;
  const QLocale locale(QString::fromUtf8(region.data(), static_cast<qsizetype>(region.size())));
  if (locale.language() == QLocale::C) return std::nullopt;
  return locale;
}

/// Removes from a date or time pattern, outside quotes, the runs of `letter` that have at least
/// `length`, and what they leave behind at the ends.
QString without(const QString& pattern, QChar letter, qsizetype length) {
  QString result;
  bool quoted = false;
  for (qsizetype i = 0; i < pattern.size();) {
    qsizetype end = i + 1;
    while (end < pattern.size() && pattern[end] == pattern[i]) ++end;
    if (pattern[i] == u'\'' && (end - i) % 2 == 1) quoted = !quoted;
    if (quoted || pattern[i] != letter || end - i < length) result += pattern.mid(i, end - i);
    i = end;
  }
  result.remove(QStringLiteral("()"));
  const auto isLoose = [](QChar c) { return c.isSpace() || c == u',' || c == QChar(0x060C); };
  while (!result.isEmpty() && isLoose(result.front())) result.remove(0, 1);
  while (!result.isEmpty() && isLoose(result.back())) result.chop(1);
  return result;
}

}  // namespace

struct ZAN_StringUtils::State {
  std::optional<QLocale> region;
  QLocale numbers{QLocale::English, QLocale::UnitedStates};
  QLocale dates = QLocale::c();
  QString shortDate;
  QString shortTime;
  QString timeWithSeconds;
  QString mediumDate;
  absl::TimeZone zone = absl::UTCTimeZone();

  void setDates(const std::optional<QLocale>& locale) {
    dates = locale.value_or(QLocale::c());
    if (!locale) {
      shortDate = mediumDate = QStringLiteral("yyyy-MM-dd");
      shortTime = QStringLiteral("HH:mm");
      timeWithSeconds = QStringLiteral("HH:mm:ss");
      return;
    }
    shortDate = dates.dateFormat(QLocale::ShortFormat);
    shortTime = dates.timeFormat(QLocale::ShortFormat);
    timeWithSeconds = without(dates.timeFormat(QLocale::LongFormat), u't', 1);
    mediumDate = without(dates.dateFormat(QLocale::LongFormat), u'd', 3);
    mediumDate.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
  }

  QDateTime civil(ReferenceTime time) const {
    constexpr double kDay = 86400.0;  // no zone is further from UTC
    constexpr double kFirst = -63113904000.0 + kDay;
    constexpr double kLast = 252423993599.0 - kDay;
    const double held = std::isnan(time) ? 0 : std::clamp(time, kFirst, kLast);
    const auto seconds = static_cast<std::int64_t>(std::floor(held + kReferenceEpochInUnixTime));
    const absl::CivilSecond c = absl::ToCivilSecond(absl::FromUnixSeconds(seconds), zone);
    return {QDate(static_cast<int>(c.year()), c.month(), c.day()),
            QTime(c.hour(), c.minute(), c.second()), Qt::UTC};
  }
  std::string text(const QDateTime& civil, const QString& pattern) const {
    return dates.toString(civil, pattern).toStdString();
  }
};

namespace {

/// How many bytes the character at the beginning has, if it is one that moves what stands beside it
/// or is not to be seen: controls of eight bits, line and paragraph separator, what turns the
/// direction of text, blanks without width. 0 for others.
std::size_t bytesOfDeceiver(std::string_view text) {
  const auto byte = [text](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  if (byte(0) == 0xc2) return byte(1) >= 0x80 && byte(1) < 0xa0 ? 2 : 0;
  const unsigned last = byte(2);
  if (text.starts_with("\xe2\x80"))
    return last == 0x8b || (last >= 0xa8 && last <= 0xae) ? 3 : 0;  // U+200B, U+2028 to U+202E
  if (text.starts_with("\xe2\x81"))
    return last >= 0xa0 && last <= 0xa9 ? 3 : 0;  // U+2060 to U+2069
  return text.starts_with("\ufeff") ? 3 : 0;
}

}  // namespace

std::string ZAN_StringUtils::oneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  while (!text.empty()) {
    const auto letter = static_cast<unsigned char>(text.front());
    const std::size_t deceiver = letter < 0x80 ? 0 : bytesOfDeceiver(text);
    line += deceiver > 0 || letter < ' ' || letter == 0x7f ? ' ' : text.front();
    text.remove_prefix(std::max<std::size_t>(deceiver, 1));
  }
  return line;
}

std::string ZAN_StringUtils::oneEntry(std::string_view text) {
  std::string entry;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    if (!entry.empty()) entry += "    ";
    entry += oneLine(text.substr(0, end));
    if (end < text.size()) entry += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return entry;
}

std::string_view ZAN_StringUtils::trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string ZAN_StringUtils::twoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string ZAN_StringUtils::getDuration(std::int64_t seconds) {
  seconds = std::max<std::int64_t>(seconds, 0);
  return std::to_string(seconds / 3600) + ":" + twoDigits(seconds / 60 % 60) + ":" +
         twoDigits(seconds % 60);
}

ZAN_StringUtils::ZAN_StringUtils(std::string_view region, std::string_view timeZone) {
  auto state = std::make_shared<State>();
  state->region = localeOf(region);
  if (state->region) state->numbers = *state->region;
  state->numbers.setNumberOptions(QLocale::DefaultNumberOptions);
  state->setDates(state->region);
  mState = std::move(state);
  setTimeZone(timeZone);
}

void ZAN_StringUtils::setTimeZone(std::string_view timeZone) {
  auto state = std::make_shared<State>(*mState);
  if (!absl::LoadTimeZone(std::string(timeZone), &state->zone)) state->zone = absl::UTCTimeZone();
  mState = std::move(state);
}

void ZAN_StringUtils::setDateRegion(std::string_view region) {
  auto state = std::make_shared<State>(*mState);
  const auto locale = localeOf(region);
  state->setDates(locale ? locale : state->region);
  mState = std::move(state);
}

std::string ZAN_StringUtils::format(std::string_view format, Arguments arguments) {
  std::string result;
  result.reserve(format.size() + 32);
  std::size_t nextArgument = 0;
  for (std::size_t at = 0; at < format.size();) {
    const char c = format[at++];
    if (c != '%') {
      result += c;
    } else if (at < format.size() && format[at] == '%') {
      result += format[at++];
    } else if (const auto found = placeholder(format, at)) {
      const std::size_t index = found->position ? *found->position - 1 : nextArgument++;
      if (index < arguments.size()) result += filled(*found, arguments.begin()[index]);
    } else {
      result += c;
    }
  }
  return result;
}

std::string ZAN_StringUtils::getIntegerWithSeparators(std::int64_t value) const {
  return mState->numbers.toString(static_cast<qlonglong>(value)).toStdString();
}

std::string ZAN_StringUtils::getUnsignedWithSeparators(std::uint64_t value) const {
  return mState->numbers.toString(static_cast<qulonglong>(value)).toStdString();
}

std::string ZAN_StringUtils::getShortSizeBytes(std::uint64_t bytes) const {
  constexpr std::uint64_t kLargest = std::numeric_limits<qint64>::max();
  std::uint64_t shown = std::min(bytes, kLargest);
  // The unit follows from the rounded value, so that 999,999 bytes are a megabyte and not 1,000 kB.
  std::uint64_t unit = 1;
  int decimals = 0;
  while (shown >= unit * 1000 && unit < 1'000'000'000'000'000'000) {
    unit *= 1000;
    const std::uint64_t step = unit == 1000 ? unit : unit / 10;
    const std::uint64_t rounded = (shown / step + (shown % step >= step / 2 ? 1 : 0)) * step;
    if (rounded < unit * 1000 || unit == 1'000'000'000'000'000'000) {
      shown = std::min(rounded, kLargest);
      decimals = shown % unit == 0 ? 0 : 1;
      break;
    }
    shown = std::min(rounded, kLargest);
  }
  return mState->numbers
      .formattedDataSize(static_cast<qint64>(shown), decimals, QLocale::DataSizeSIFormat)
      .toStdString();
}

std::string ZAN_StringUtils::getSizeBytes(std::uint64_t bytes) const {
  if (bytes < 1000) return getShortSizeBytes(bytes);
  // "2 bytes" tells how the region writes the word and where.
  QString words = mState->numbers.formattedDataSize(2, 0, QLocale::DataSizeSIFormat);
  words.replace(mState->numbers.toString(2),
                mState->numbers.toString(static_cast<qulonglong>(bytes)));
  return getShortSizeBytes(bytes) + " (" + words.toStdString() + ")";
}

std::string ZAN_StringUtils::getShortDate(ReferenceTime time) const {
  return mState->text(mState->civil(time), mState->shortDate);
}

std::string ZAN_StringUtils::getShortTime(ReferenceTime time) const {
  return mState->text(mState->civil(time), mState->shortTime);
}

std::string ZAN_StringUtils::getShortTimeDate(ReferenceTime time) const {
  return getShortDate(time) + " " + getShortTime(time);
}

std::string ZAN_StringUtils::getShortTimeWithSeconds(ReferenceTime time) const {
  return mState->text(mState->civil(time), mState->timeWithSeconds);
}

std::string ZAN_StringUtils::getMediumDateTime(ReferenceTime time) const {
  return mState->text(mState->civil(time), mState->mediumDate) + " " +
         getShortTimeWithSeconds(time);
}

}  // namespace corvana
