#pragma once

#include <functional>
#include <string>

#include "ui/MenuItem.h"

namespace corvana {

class Processes;

/// The contents of a folder as items that hand their path to `open`, folders as submenus of their
/// own; hidden files are left out, and what is too much for a menu. It waits for the folder's disk
/// a minute at most, and then shows nothing. Thread: any.
MenuItem::List folderItems(Processes& processes, const std::string& path,
                           const std::function<void(const std::string&)>& open);

}  // namespace corvana
