#pragma once

#include <functional>
#include <iosfwd>
#include <map>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Where a subcommand reads and writes: what it is asked for goes to `out`, reasons to `err`.
struct Console {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
};

/// Exit codes of every subcommand.
inline constexpr int kDone = 0;
inline constexpr int kCouldNot = 1;    ///< the reason is on `err`
inline constexpr int kWrongWords = 2;  ///< so is what was wrong with the words

/// What a subcommand has found out or done: its result as data, and the lines that show it.
struct Answer {
  /// Done, and nothing to say.
  Answer() = default;
  Answer(ZAN_Value found, std::string lines) : value(std::move(found)), text(std::move(lines)) {}
  Answer(const Error& error) : reason(error.text), code(kCouldNot) {}
  /// For commands that have no JSON.
  static Answer ofText(std::string lines);

  std::optional<ZAN_Value> value;
  std::string text;
  /// For `err`, unless the value goes out in its place.
  std::string reason;
  int code = kDone;
};

/// The words were wrong; the usage line follows by itself.
Answer wrongWords(const Error& error);

/// Prints what subcommands have to say, for people or as JSON.
class Writer {
 public:
  Writer(const Console& console, bool json) : mConsole(console), mJson(json) {}

  bool isJson() const { return mJson; }
  /// Gives the exit code.
  int finish(const Answer& answer) const;
  /// What happens while a command goes on, at once: a line, or an object on one line.
  void tell(const ZAN_Value& event, std::string_view line) const;
  /// Prints "corvana9: reason" to `err`.
  void complain(std::string_view reason) const;

 private:
  const Console& mConsole;
  bool mJson;
};

/// Lines for people, filled from the value that JSON shows to programs. A pattern holds
///
///     {name}         what is under that name, a text or a whole number; deeper ones as
///     {one.other};
///                    without a name it is the value itself
///     {name:format}  the same in one of the formats
///     {name?…}       what follows, if there is something: a date, a text, list or record that is
///                    not empty, a number above 0
///     {name!…}       what follows, if there is not
///     {name*…}       what follows for each element, whose names it uses; {#} counts them from 1
///
/// Texts lose their control characters.
class TextForm {
 public:
  using Format = std::function<std::string(const ZAN_Value& value)>;

  /// Has the formats date ("Tue 2026-11-24 08:00"), seconds, clock ("08:00:00"), action (title and
  /// reference of a record), and lines (a text that keeps its line ends).
  explicit TextForm(const ZAN_DateUtils& calendar);

  TextForm& with(std::string format, Format words);
  std::string fill(std::string_view pattern, const ZAN_Value& value) const {
    return filled(pattern, value, 0);
  }

 private:
  std::string filled(std::string_view pattern, const ZAN_Value& value, std::size_t count) const;
  std::string field(std::string_view field, const ZAN_Value& record, std::size_t count) const;

  std::map<std::string, Format, std::less<>> mFormats;
};

/// A text from a file as it may be shown on a terminal: control characters become blanks.
std::string printable(std::string_view text);
/// A value as JSON for programs, dates as seconds since 2001-01-01 00:00:00 UTC.
std::string jsonText(const ZAN_Value& value, bool compact = false);
/// The title of an action with its reference: "Letters [785000000]".
std::string namedAction(const std::string& title, std::int64_t reference);

}  // namespace corvana
