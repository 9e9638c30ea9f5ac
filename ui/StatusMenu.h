#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/UserInterface.h"
#include "ui/MenuItem.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

class ProgrammedAction;

/// The agent's menus, read from the state each time they are asked for. Thread: main.
class StatusMenu {
 public:
  explicit StatusMenu(const UserInterfaceSources& sources) : m(sources) {}

  /// The menu of the status item.
  MenuItem::List items() const;
  /// The pop-up menu of the floating icon: what is wanted quickly.
  MenuItem::List floatingItems() const;

 private:
  MenuItem::List beginning() const;
  MenuItem titleItem() const;
  /// What wants to be looked at, if anything does.
  MenuItem::List attentionItems() const;
  MenuItem::List moreItems() const;
  MenuItem::List executionItems() const;
  MenuItem::List runningItems() const;
  MenuItem::List contextItems() const;
  MenuItem::List launchItems(const ProgrammedAction& group) const;
  MenuItem runItem() const;
  MenuItem pauseItem() const;
  MenuItem stopItem() const;
  MenuItem::List favouriteItems() const;
  MenuItem::List goToItems() const;
  MenuItem::List notificationItems() const;
  MenuItem::List volumeItems() const;
  MenuItem launchItem(const ProgrammedAction& action) const;
  MenuItem windowItem(const char* key, Window window) const;
  MenuItem placeItem(const std::string& title, const std::string& path, bool withContents) const;
  void launch(std::int64_t ref) const;
  void open(const std::string& path) const;
  const std::string& text(std::string_view key) const;

  const UserInterfaceSources& m;
};

}  // namespace corvana
