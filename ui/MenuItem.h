#pragma once

#include <functional>
#include <string>
#include <vector>

namespace corvana {

class Processes;

/// The meaning of a menu title's colour; the desktop has a shade for each.
enum class MenuColour { label, information, warning, alarm, secondary };

/// The file icon that an item shows, chosen without touching the file.
enum class MenuIcon { none, folder, home, volume, file };

/// One item of a menu, as a model: what it says and what it does.
struct MenuItem {
  enum class Kind { command, separator, heading, submenu };
  using List = std::vector<MenuItem>;

  Kind kind = Kind::command;
  std::string title;
  MenuColour colour = MenuColour::label;
  bool enabled = true;
  bool checkable = false;
  bool checked = false;
  bool exclusive = false;  ///< one of several beside each other, of which one holds
  MenuIcon icon = MenuIcon::none;
  std::function<void()> action;
  /// A submenu is filled when it is about to be shown: by `fill` at once on the main thread, or by
  /// `read`, which may take its time and runs on a thread of its own.
  std::function<List()> fill;
  std::function<List()> read;

  static MenuItem separator() {
    MenuItem item;
    item.kind = Kind::separator;
    return item;
  }
  static MenuItem command(std::string title, std::function<void()> action) {
    MenuItem item;
    item.title = std::move(title);
    item.action = std::move(action);
    return item;
  }
  static MenuItem check(std::string title, bool checked, std::function<void()> action) {
    MenuItem item = command(std::move(title), std::move(action));
    item.checkable = true;
    item.checked = checked;
    return item;
  }
  static MenuItem choice(std::string title, bool checked, std::function<void()> action) {
    MenuItem item = check(std::move(title), checked, std::move(action));
    item.exclusive = true;
    return item;
  }
  static MenuItem submenu(std::string title, std::function<List()> fill) {
    MenuItem item;
    item.kind = Kind::submenu;
    item.title = std::move(title);
    item.fill = std::move(fill);
    return item;
  }
  /// What only tells something.
  static MenuItem note(std::string title) {
    MenuItem item;
    item.title = std::move(title);
    item.enabled = false;
    return item;
  }
};

/// The contents of a folder as items that hand their path to `open`, folders as submenus of their
/// own; hidden files are left out, and what is too much for a menu. It waits for the folder's disk
/// a minute at most, and then shows nothing. Thread: any.
MenuItem::List folderItems(Processes& processes, const std::string& path,
                           const std::function<void(const std::string&)>& open);

}  // namespace corvana
