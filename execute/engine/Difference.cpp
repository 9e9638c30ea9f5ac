#include "execute/engine/Difference.h"

#include <fcntl.h>

#include <optional>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FolderWalk.h"
#include "execute/engine/NameList.h"

namespace corvana {

namespace {

bool isBefore(const std::string& one, const std::string& two) {
  return comesBefore(VersionItem::escaped(one), VersionItem::escaped(two));
}

}  // namespace

void Difference::compare(const VersionItem& then, const VersionItem& now,
                         const std::string& path) const {
  if (now.kind == VersionItem::Kind::none) return mHooks.tell("gone", path);
  const bool isOther = now.kind != then.kind ||
                       (!then.target.empty() && now.target != then.target) ||
                       (then.kind == VersionItem::Kind::file &&
                        (now.size != then.size || now.seconds != then.seconds));
  if (isOther) return mHooks.tell("changed", path);
  if (now.mode != then.mode || now.user != then.user || now.group != then.group)
    mHooks.tell("attributes", path);
}

Outcome Difference::find(const std::string& name, const std::string& target) const {
  // Names as the folder has them now, in the order of the version's.
  const bool isAll = target == ".";
  const auto [above, entry] = splitName(target);
  const ZAN_Descriptor parent = openPathBelow(mFolder.descriptor(), above, O_PATH | O_DIRECTORY);
  const ZAN_Descriptor root =
      isAll ? openFolderBelow(mFolder.descriptor(), ".")
            : (parent ? openFolderBelow(parent.get(), entry) : ZAN_Descriptor());
  std::optional<TreeCursor> cursor;
  if (root) cursor.emplace(root.get(), name);
  auto now = cursor ? cursor->next() : std::nullopt;
  const auto pathOf = [&](const std::string& item) {
    return ZAN_FilesUtils::joinedPath(
        ZAN_FilesUtils::joinedPath(mFolder.path(), isAll ? "" : target),
        item.size() > name.size() ? item.substr(name.size() + 1) : std::string());
  };
  const Outcome read = mVersion.forEach(name, [&, entry = entry](const VersionTree::Entry& found) {
    const std::string& item = found.item.name;
    if (!mHooks.goesOn(pathOf(item))) return false;
    if (item == name) {
      const auto there =
          isAll ? VersionItem::read(mFolder.descriptor(), ".", name, false)
                : (parent ? VersionItem::read(parent.get(), entry, name, false) : std::nullopt);
      compare(found.item, there.value_or(VersionItem{.name = name}), pathOf(item));
      return true;
    }
    while (now && isBefore(now->name, item)) {
      mHooks.tell("new", pathOf(now->name));
      if (now->isFolder) cursor->skip();
      now = cursor->next();
    }
    if (now && now->name == item) {
      const auto there = VersionItem::read(now->folder, now->entry, item, false);
      compare(found.item, there.value_or(VersionItem{.name = item}), pathOf(item));
      if (now->isFolder && found.item.kind != VersionItem::Kind::folder) cursor->skip();
      now = cursor->next();
    } else {
      mHooks.tell("gone", pathOf(item));
    }
    return true;
  });
  if (!read) return read;
  for (; now; now = cursor->next()) {
    mHooks.tell("new", pathOf(now->name));
    if (now->isFolder) cursor->skip();
  }
  return {};
}

}  // namespace corvana
