#include "execute/plain/VersionView.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

bool isBefore(const std::string& name, const std::string& other) {
  return comesBefore(VersionItem::escaped(name), VersionItem::escaped(other));
}

/// What the list of a version says of what is asked for, in order.
struct Layer {
  const HeldFolder* folder;
  VersionListReader reader;
  std::optional<VersionItem> item = {};
  std::string closedName = {};  ///< was no folder, so that nothing is below it

  /// To the next item under that name; what is above it counts as what it is.
  void advance(const std::string& wanted) {
    for (;;) {
      if (item && item->kind != VersionItem::Kind::folder) closedName = item->name;
      item = reader.next();
      if (!item || wanted.empty() || item->name == wanted || isBelow(item->name, wanted)) return;
      if (!isBelow(wanted, item->name) && isBefore(wanted, item->name)) return item.reset();
    }
  }
};

/// What lies in the copies under that name, itself first.
class CopyCursor {
 public:
  CopyCursor(const HeldFolder& destination, const std::vector<VersionHeader::Copy>& copies,
             std::string wanted, std::function<void(const std::string&)> unreadable)
      : mRoot(destination.descriptor()), mUnreadable(std::move(unreadable)) {
    if (!wanted.empty()) {
      mNames.push_back(std::move(wanted));
    } else {
      for (const auto& copy : copies) mNames.push_back(copy.name);
      std::ranges::sort(mNames, isBefore);
    }
  }

  std::optional<VersionItem> next() {
    for (;;) {
      if (mBelow) {
        while (const auto entry = mBelow->next()) {
          // What is ours to know of a copy is none of it.
          const bool isAtTop = splitName(entry->name).first.find('/') == std::string::npos;
          if ((isAtTop && entry->entry.starts_with(Versions::kMark)) ||
              entry->entry == Versions::kHalves) {
            mBelow->skip();
            continue;
          }
          if (auto item = read(entry->folder, entry->entry, entry->name)) return item;
        }
        mBelow.reset();
      }
      if (mAt == mNames.size()) return std::nullopt;
      const std::string& name = mNames[mAt++];
      const auto [above, entry] = splitName(name);
      mParent = openPathBelow(mRoot, above, O_PATH | O_DIRECTORY);
      if (!mParent) continue;
      auto item = read(mParent.get(), entry, name);
      if (!item) continue;
      if (item->kind == VersionItem::Kind::folder) {
        mFolder = openFolderBelow(mParent.get(), entry);
        if (mFolder) {
          mBelow.emplace(mFolder.get(), name, mUnreadable);
        } else if (mUnreadable) {
          mUnreadable(name);
        }
      }
      return item;
    }
  }

 private:
  std::optional<VersionItem> read(int folder, const std::string& entry, const std::string& name) {
    auto item = VersionItem::read(folder, entry, name, true);
    if (!item && mUnreadable) mUnreadable(name);
    if (item && item->kind == VersionItem::Kind::none) item.reset();
    return item;
  }

  int mRoot;
  std::function<void(const std::string&)> mUnreadable;
  std::vector<std::string> mNames;
  std::size_t mAt = 0;
  ZAN_Descriptor mParent;
  ZAN_Descriptor mFolder;
  std::optional<TreeCursor> mBelow;
};

/// A process usually begins with 1,024, and may have as many as the system lets it.
void allowDescriptors(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

Result<VersionView> VersionView::open(const HeldFolder& destination, const HeldFolder& versions,
                                      const std::vector<VersionFolder>& chain, std::size_t index) {
  auto held = destination.again();
  if (!held) return held.error();
  VersionView view(*std::move(held), chain[index].header.value_or(VersionHeader()));
  // Of each newer version the folder and its list are open at once.
  constexpr std::size_t kOthers = 256;
  allowDescriptors(2 * (chain.size() - index) + kOthers);
  for (std::size_t i = index; i < chain.size(); ++i) {
    auto layer = versions.below(chain[i].name);
    if (!layer) return layer.error();
    view.mLayers.push_back(*std::move(layer));
  }
  return view;
}

Result<std::vector<VersionItem>> VersionView::statesOf(const HeldFolder& destination,
                                                       const HeldFolder& versions,
                                                       const std::vector<VersionFolder>& chain,
                                                       const std::string& name) {
  const auto [above, entry] = splitName(name);
  const ZAN_Descriptor parent =
      openPathBelow(destination.descriptor(), above, O_PATH | O_DIRECTORY);
  VersionItem state{.name = name};
  if (parent) state = VersionItem::read(parent.get(), entry, name, true).value_or(state);
  std::vector<VersionItem> states(chain.size());
  for (std::size_t index = chain.size(); index-- > 0;) {
    const auto folder = versions.below(chain[index].name);
    if (!folder) return folder.error();
    auto reader = VersionListReader::open(folder->descriptor(), std::string(VersionFolder::kList),
                                          folder->path());
    if (!reader) return reader.error();
    Layer layer{&*folder, *std::move(reader)};
    layer.advance(name);
    if (layer.item && layer.item->name == name) {
      state = *layer.item;
    } else if (isBelow(name, layer.closedName)) {
      state = {.name = name};
    }
    states[index] = state;
  }
  return states;
}

/// Whether it lies in one of the copies that the version has.
bool VersionView::isOfVersion(const std::string& name) const {
  return std::ranges::any_of(mHeader.copies, [&](const VersionHeader::Copy& copy) {
    return name == copy.name || isBelow(name, copy.name);
  });
}

Outcome VersionView::forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                             const std::function<void(const std::string&)>& unreadable) const {
  std::vector<Layer> layers;
  for (const auto& folder : mLayers) {
    auto reader = VersionListReader::open(folder.descriptor(), std::string(VersionFolder::kList),
                                          folder.path());
    if (!reader) return reader.error();
    layers.push_back({&folder, *std::move(reader)});
  }
  for (auto& layer : layers) layer.advance(name);
  CopyCursor cursor(mDestination, mHeader.copies, name, unreadable);
  auto copied = cursor.next();
  for (;;) {
    std::optional<std::string> first;
    if (copied) first = copied->name;
    for (const auto& layer : layers) {
      if (layer.item && (!first || isBefore(layer.item->name, *first))) first = layer.item->name;
    }
    if (!first) return {};
    std::optional<VersionItem> found;
    const HeldFolder* holder = nullptr;
    bool isDecided = false;
    for (auto& layer : layers) {
      const bool isMeant = layer.item && layer.item->name == *first;
      if (!isDecided) {
        if (isMeant) {
          found = layer.item;
          isDecided = true;
        } else if (isBelow(*first, layer.closedName)) {
          isDecided = true;
        }
      }
      if (found && !holder && isMeant && layer.item->contents == VersionItem::Contents::here)
        holder = layer.folder;
    }
    const bool isCopied = copied && copied->name == *first;
    if (!isDecided && isCopied) found = copied;
    if (found && !holder) holder = &mDestination;
    const bool goesOn = !found || found->kind == VersionItem::Kind::none || !isOfVersion(*first) ||
                        each({*std::move(found), holder});
    if (!goesOn) return {};
    for (auto& layer : layers) {
      if (layer.item && layer.item->name == *first) layer.advance(name);
    }
    if (isCopied) copied = cursor.next();
  }
}

}  // namespace corvana
