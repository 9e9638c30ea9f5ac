#pragma once

#include <functional>
#include <string>

#include "ui/MenuItem.h"

namespace corvana {

/// The contents of a folder as items that hand their path to `open`, folders as submenus of their
/// own; hidden files are left out, and what is too much for a menu. It may wait for the folder's
/// disk. Thread: any.
MenuItem::List folderItems(const std::string& path,
                           const std::function<void(const std::string&)>& open);

}  // namespace corvana
