#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

/// The preferences window: every preference in plain words, page by page. A change counts at once.
/// What the machine cannot do is switched off, with the reason. Thread: main.
class PreferencesModel {
 public:
  enum class Kind {
    checkBox,  ///< 0 or 1
    choice,    ///< the number of the chosen text
    number,    ///< between `least` and `most`
    text,
    password,
    shortcut,  ///< data of 16 bytes, one bit a key
    command,   ///< a button that does something; no value
    place,     ///< dragged on the screen; null puts it back where it was at first
    fact,      ///< only to be read
  };
  struct Item {
    std::string key;
    Kind kind = Kind::checkBox;
    std::string label;
    std::string help;
    std::function<ZAN_Value()> read;
    std::vector<std::string> choices = {};
    double least = 0, most = 0;
    std::string unit = {};
    std::function<void()> perform = {};  ///< of a command
    std::string lacking = {};  ///< why it cannot be used on this machine; empty when it can
  };
  struct Page {
    std::string title;
    std::vector<Item> items;
  };

  explicit PreferencesModel(const UserInterfaceSources& sources) : m(sources) {}

  std::vector<Page> pages() const;
  void change(const Item& item, const ZAN_Value& value) const;

  /// The keys of a shortcut as words, "Ctrl+Shift+K"; empty for none. Without a name a key is its
  /// number.
  std::string shortcutText(const ZAN_Value& keys) const;
  /// Whether these keys together are nothing that one types anyway: a key with Ctrl, Alt or Super,
  /// or a function key.
  static bool isShortcut(const ZAN_Value& keys);
  /// Keys that a shortcut never holds, since they only switch something.
  static bool isLock(std::size_t code);

 private:
  Page generalPage() const;
  Page iconPage() const;
  Page messagesPage() const;
  Page executionPage() const;
  Page volumesPage() const;
  Page networkPage() const;

  Item item(std::string key, Kind kind, std::string label, std::string help,
            std::function<ZAN_Value()> read) const;
  template <class T>
  Item check(std::string key, T Preferences::*field, std::string label, std::string help) const;
  Item choice(std::string key, int Preferences::*field, std::string label, std::string help,
              std::vector<std::string> choices) const;
  template <class T>
  Item number(std::string key, T Preferences::*field, std::string label, std::string help,
              double least, double most, std::string unit) const;
  /// Switched off without the ability.
  Item needing(Ability ability, Item item) const;
  /// Stays on without it, since that may be mended, and says what is lacking.
  Item noting(Ability ability, Item item) const;
  std::string dateText(ReferenceTime date) const;

  const UserInterfaceSources& m;
};

}  // namespace corvana
