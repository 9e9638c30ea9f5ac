#pragma once

#include <functional>
#include <map>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"

namespace corvana {

/// The texts that the user sees, by key, in the language that the user reads.
///
/// The lookup is always written `text("Key")` with the key as a literal (or a choice between
/// literals), so that a test finds every key that the program asks for. Thread: main once loaded;
/// lookups alone may come from any thread.
class ZAN_StringTable {
 public:
  using Entries = std::map<std::string, std::string, std::less<>>;

  ZAN_StringTable() = default;
  explicit ZAN_StringTable(Entries entries) : mEntries(std::move(entries)) {}

  /// Reads `<resourcesFolder>/<language>.lproj/Localizable.strings` for the wanted languages, most
  /// wanted first, with English behind: a text that a language lacks comes from the next one.
  /// "fr_CA" stands for fr_CA, fr-CA and fr, in this order. What was loaded before is replaced. A
  /// language without a file is skipped. A damaged line costs its own entry only; the result then
  /// names the damaged lines ("path:line: reason", one a line) while everything else is there.
  /// English missing is an error of kind `absent`. A ".one" text goes with its own language's text
  /// only.
  Outcome load(const std::string& resourcesFolder, const std::vector<std::string>& languages);

  /// The text under a key; the empty string when there is none. Valid until the next `load`.
  const std::string& text(std::string_view key) const;
  /// The same, as a format filled with the arguments. When the last whole number among them is 1,
  /// the text under the key with ".one" behind it is taken instead, if the language has one: "1
  /// action", "2 actions".
  std::string text(std::string_view key, ZAN_StringUtils::Arguments arguments) const;

  const Entries& entries() const { return mEntries; }

  struct Damage {
    int line = 0;  ///< from 1
    std::string reason;
  };
  /// Reads the contents of a strings file, `"key" = "value";` with comments, in UTF-8 or in UTF-16
  /// with a byte-order mark. Of a key that comes twice the later value counts. Damaged lines are
  /// skipped and told.
  static Entries parse(std::string_view bytes, std::vector<Damage>& damages);

 private:
  Entries mEntries;
};

}  // namespace corvana
