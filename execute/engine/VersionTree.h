#pragma once

#include <functional>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/engine/VersionItem.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// All that a version has, by names relative to one place.
class VersionTree {
 public:
  struct Entry {
    VersionItem item;
    /// Has the contents of a file under the item's name; null where they are in no folder.
    const HeldFolder* holder;
  };

  virtual ~VersionTree() = default;

  /// All that lies under that name, itself first, in the order of `comesBefore`; with an empty name
  /// everything. `each` says whether to go on. What cannot be read is told to `unreadable`.
  /// Nothing there is no error.
  virtual Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                          const std::function<void(const std::string&)>& unreadable) const = 0;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each) const {
    return forEach(name, each, {});
  }
};

}  // namespace corvana
