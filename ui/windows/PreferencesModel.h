#pragma once

#include <vector>

#include "core/record/Preferences.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

/// The preferences window: every preference in plain words, page by page. A change counts at once.
/// What the machine cannot do is switched off, with the reason. Thread: main.
class PreferencesModel {
 public:
  using Kind = Preference::Kind;
  struct Item {
    std::string key;
    Kind kind = Kind::checkBox;
    std::string label;
    std::string help;
    std::function<ZAN_Value()> read;
    std::function<void(const ZAN_Value&)> write = {};  ///< nothing: stored under its key
    std::vector<std::string> choices;
    double least = 0, most = 0;
    std::string unit;
    std::function<void()> perform;  ///< of a command
    std::string lacking;            ///< why it cannot be used on this machine; empty when it can
    /// Of a fact that is a list of {"name", "sender"}: gives one of them another name, or removes
    /// it for an empty one.
    std::function<void(const std::string& sender, const std::string& name)> rename{};
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
  Item item(const Preference& preference) const;
  Page mailPage() const;
  void addPairing(Page& page) const;
  ZAN_Value read(const Preference& preference) const;
  /// As a sentence; empty when the machine has it, or when none is needed.
  std::string lacking(std::optional<Ability> ability) const;

  const UserInterfaceSources& m;
};

}  // namespace corvana
