#pragma once

#include <concepts>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// Texts for people: format strings, and numbers, sizes and dates as a region writes them.
///
/// A region is a POSIX name such as "fr_FR.UTF-8"; forms such as "fr-FR" are understood too. "C",
/// "POSIX", an empty and an unknown name group digits as English does and write dates as 2026-11-21
/// and times as 18:05. An unknown time zone counts as UTC. Instants outside the years 1 to 9999 are
/// written as the nearest one inside.
///
/// Thread: an object is used on one thread; a copy is cheap and may be used on another.
class ZAN_StringUtils {
 public:
  /// What a placeholder is filled with: a text, an integer or a real.
  class Argument {
   public:
    template <std::integral T>
    Argument(T value) : mValue(static_cast<std::int64_t>(value)) {}
    template <std::floating_point T>
    Argument(T value) : mValue(static_cast<double>(value)) {}
    Argument(std::string_view text) : mValue(std::string(text)) {}
    Argument(const std::string& text) : mValue(text) {}
    Argument(std::string&& text) : mValue(std::move(text)) {}
    Argument(const char* text) : mValue(std::string(text != nullptr ? text : "")) {}

    const std::variant<std::string, std::int64_t, double>& value() const { return mValue; }

   private:
    std::variant<std::string, std::int64_t, double> mValue;
  };
  using Arguments = std::initializer_list<Argument>;

  /// Fills "%@" (text), "%d" (integer), "%1.3f" (real), their positional forms such as "%2$@", and
  /// "%%". The format may come from a translation, so nothing in it is an error: a placeholder
  /// without argument yields nothing, an argument without placeholder is dropped, one of another
  /// type is converted (an integer in "%@" is its digits, a text in "%d" is the text), and a
  /// percent sign that begins no placeholder stands for itself. Reals always have a point, whatever
  /// the region.
  static std::string format(std::string_view format, Arguments arguments);

  /// Without blanks, tabs and line ends at both ends.
  static std::string_view trimmed(std::string_view text);
  /// The text as it may stand in a line: control characters, every kind of line end, and what turns
  /// the direction of text or cannot be seen become blanks.
  static std::string oneLine(std::string_view text);
  /// The text as one entry of a file of lines: what follows a line end is set in, so that it cannot
  /// be taken for another entry. A line end at the end stays.
  static std::string oneEntry(std::string_view text);
  /// "07"; a longer number has its own length. None is negative.
  static std::string twoDigits(std::int64_t number);
  /// 1:02:03; hours grow as they must. Less than nothing is nothing.
  static std::string getDuration(std::int64_t seconds);

  /// `region` for numbers and dates, `timeZone` an IANA name such as "Europe/Paris".
  explicit ZAN_StringUtils(std::string_view region = {}, std::string_view timeZone = "UTC");

  void setTimeZone(std::string_view timeZone);
  /// The product's own setting "ZAN_StringUtils_dateLocale": the region for dates and times alone;
  /// empty: the same as for numbers.
  void setDateRegion(std::string_view region);

  /// 1,234,567
  std::string getIntegerWithSeparators(std::int64_t value) const;
  std::string getUnsignedWithSeparators(std::uint64_t value) const;
  /// Three digits or so, in decimal units: "512 bytes", "34 kB", "1.2 GB".
  std::string getShortSizeBytes(std::uint64_t bytes) const;
  /// "1.2 GB (1,234,567,890 bytes)"; below a kilobyte only the bytes.
  std::string getSizeBytes(std::uint64_t bytes) const;

  std::string getShortDate(ReferenceTime time) const;             ///< 11/21/26
  std::string getShortTime(ReferenceTime time) const;             ///< 6:05 PM
  std::string getShortTimeDate(ReferenceTime time) const;         ///< 11/21/26 6:05 PM
  std::string getShortTimeWithSeconds(ReferenceTime time) const;  ///< 6:05:09 PM
  std::string getMediumDateTime(ReferenceTime time) const;        ///< Nov 21, 2026 6:05:09 PM

 private:
  struct State;
  std::shared_ptr<const State> mState;
};

}  // namespace corvana
