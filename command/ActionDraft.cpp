#include "command/ActionDraft.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "platform/linux/HeldFolder.h"
#include "platform/linux/Spawn.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

/// The path as a description holds it.
std::string absolutePath(const std::string& path) {
  std::error_code ignored;
  std::string absolute = std::filesystem::absolute(path, ignored).lexically_normal().string();
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

/// Of a home folder, and of what is often in one.
constexpr std::array<std::string_view, 12> kScratch{"/.cache/",
                                                    "/.local/share/Trash/",
                                                    "/.thumbnails/",
                                                    "/.Trash-*/",
                                                    "/.mozilla/firefox/*/cache2/",
                                                    "/.config/*/Cache/",
                                                    "/.config/*/Code Cache/",
                                                    "/.var/app/*/cache/",
                                                    "/snap/*/*/.cache/",
                                                    "/.xsession-errors*",
                                                    "/VirtualBox VMs/*/Logs/",
                                                    "/.local/share/gvfs-metadata/"};

/// Whether the folder has something that fits, component by component.
bool hasFitting(const std::string& folder, std::string_view pattern) {
  while (pattern.starts_with('/')) pattern.remove_prefix(1);
  if (pattern.empty()) return true;
  const auto slash = pattern.find('/');
  const std::string name(pattern.substr(0, slash));
  const std::string_view rest = slash == std::string_view::npos ? "" : pattern.substr(slash);
  std::error_code failed;
  if (name.find('*') == std::string::npos)
    return ZAN_FilesUtils::exists(folder + "/" + name) && hasFitting(folder + "/" + name, rest);
  for (std::filesystem::directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    if (::fnmatch(name.c_str(), entry->path().filename().c_str(), 0) == 0 &&
        hasFitting(entry->path(), rest))
      return true;
  }
  return false;
}

std::optional<FolderTrouble> describe(const std::string& path, ActionFolders::Role role, bool force,
                                      Volumes& volumes, FolderDescription& description) {
  using Kind = FolderTrouble::Kind;
  const bool isSource = role == ActionFolders::Role::source;
  const std::string absolute = absolutePath(path);
  if (path.empty() || absolute == "/") return FolderTrouble{Kind::notAPlace, path, isSource};
  if (!isUtf8(absolute)) return FolderTrouble{Kind::notUnicode, absolute, isSource};
  const auto look = ExpendableChild::valueOf(
      [&]() -> std::optional<Kind> {
        if (ZAN_FilesUtils::exists(absolute))
          return isSource || ZAN_FilesUtils::isFolder(absolute) ? std::nullopt
                                                                : std::optional(Kind::notAFolder);
        const std::string above(ZAN_FilesUtils::parentPath(absolute));
        return !isSource && ZAN_FilesUtils::isFolder(above) ? std::nullopt
                                                            : std::optional(Kind::notThere);
      },
      ActionFolders::kPatience);
  const auto trouble = look.value_or(Kind::noAnswer);
  if (trouble && !force) return FolderTrouble{*trouble, absolute, isSource};

  const VolumeReference reference(volumes);
  const auto mount = reference.ofPath(absolute);
  if (!mount && !force) return FolderTrouble{Kind::noVolume, absolute, isSource};
  const auto known = mount ? volumes.information(*mount) : std::nullopt;
  description.setPath(absolute)
      .setPathLocalized(reference.localizedPath(absolute))
      .setVolumeName(mount ? VolumeReference::nameOf(*mount, known) : std::string())
      .setVolumeSize(known ? known->totalSize : std::uint64_t{0})
      .setVolumeDate(known ? known->creationDate : std::uint64_t{0});
  if (known && !known->uuid.empty()) description.setUuid(known->uuid);
  if (mount) description.setMounted(mount->fileSystem, mount->source, mount->root);
  return {};
}

/// Where the folder, or the one that is to hold it, lies on its file system: two are one when these
/// are equal. The path itself where that cannot be told.
std::string placeOf(std::string_view path) {
  std::string rest;
  std::string folder(path);
  auto held = HeldFolder::open(folder);
  if (!held) {
    rest = ZAN_FilesUtils::lastPathComponent(folder);
    folder = ZAN_FilesUtils::parentPath(folder);
    held = HeldFolder::open(folder);
  }
  if (!held) return std::string(path);
  const auto place = held->pathOnDevice();
  if (!place) return std::string(path);
  return "/" + std::to_string(held->mount().device) +
         ZAN_FilesUtils::joinedPath("/" + *place, rest);
}

}  // namespace

Error FolderTrouble::error() const {
  switch (kind) {
    case Kind::notAPlace:
      return {ErrorKind::refused, "\"" + path + "\": neither a source nor a destination"};
    case Kind::notThere:
      return {ErrorKind::absent,
              path + (isSource ? ": not there" : ": neither it nor the folder above it is there")};
    case Kind::notAFolder:
      return {ErrorKind::refused, path + ": not a folder"};
    case Kind::notUnicode:
      return {ErrorKind::refused,
              withReplacedBytes(path) +
                  ": its name has bytes that are no Unicode, which an action cannot store; rename "
                  "it, or choose the folder that it lies in (names below are no matter)"};
    case Kind::noAnswer:
      return {ErrorKind::unavailable, path + ": its volume does not answer"};
    case Kind::noVolume:
      return {ErrorKind::absent, path + ": no volume is mounted there"};
    case Kind::inSource:
      return {ErrorKind::refused, path + ": the destination lies in the source " + other};
    case Kind::isItsOwnCopy:
      return {ErrorKind::refused, path + ": it lies where its copy would be, in " + other};
    case Kind::copiedByOther:
      break;
  }
  return {ErrorKind::refused,
          path + ": the action " + std::to_string(reference) + " \"" + other +
              "\" copies there too, and each would delete or replace what the other has copied; "
              "choose another destination"};
}

ZAN_Value newActionRecord(const std::string& title, ReferenceTime now) {
  return ZAN_Value::dictionary({{"Title", title},
                                {"Mode", 2},
                                {"OptionsPerformer", "corvana9"},
                                {"TriggerAutomatic", 0},
                                {ActionKey::makesUpMissed, 1},
                                {ActionKey::ageAlarm, 1},
                                {"SaveEditDate", ZAN_Value::date(now)}});
}

std::optional<FolderTrouble> ActionFolders::add(const std::string& path, Role role, bool force,
                                                Volumes& volumes) {
  FolderDescription folder;
  if (auto trouble = describe(path, role, force, volumes, folder)) return trouble;
  switch (role) {
    case Role::source:
      mSources.push_back(std::move(folder));
      break;
    case Role::destination:
      mDestination = std::move(folder);
      break;
    case Role::rotation:
      mRotation.push_back(std::move(folder));
      break;
  }
  return {};
}

std::optional<FolderTrouble> ActionFolders::checkOverlap() const {
  auto destinations = mRotation;
  if (!mDestination.isNull()) destinations.push_back(mDestination);
  for (const FolderDescription& one : destinations) {
    const std::string destination(one.path());
    for (const FolderDescription& source : mSources) {
      const std::string path(source.path());
      if (ZAN_FilesUtils::isAtOrBelow(destination, path) ||
          ZAN_FilesUtils::isAtOrBelow(placeOf(destination), placeOf(path)))
        return FolderTrouble{FolderTrouble::Kind::inSource, destination, false, path};
      const std::string copy =
          ZAN_FilesUtils::joinedPath(placeOf(destination), ZAN_FilesUtils::lastPathComponent(path));
      if (ZAN_FilesUtils::isAtOrBelow(placeOf(path), copy))
        return FolderTrouble{FolderTrouble::Kind::isItsOwnCopy, path, true, destination};
    }
  }
  return {};
}

void ActionFolders::applyTo(ZAN_Value& record) const {
  if ((!mSources.empty() || !mDestination.isNull()) && !record["LastExecutionDate"].isNull())
    record.setValue(CopyKey::isNew, 1);
  if (!mSources.empty()) {
    record.setValue("ItemsSource", mSources.front().toValue());
    ZAN_Value list = ZAN_Value::array();
    for (const FolderDescription& source : mSources) list.append(source.toValue());
    record.setValue("ItemsListOfSourcePath", std::move(list));
  }
  if (!mDestination.isNull()) record.setValue("ItemsDestination", mDestination.toValue());
}

ZAN_Value ActionFolders::rotation() const {
  ZAN_Value list = ZAN_Value::array();
  for (const FolderDescription& other : mRotation) list.append(other.toValue());
  return list;
}

namespace {

/// The record with folders named by where they lie on their disks, whatever links and mounts lead
/// there.
ZAN_Value byPlace(const ZAN_Value& settings) {
  ZAN_Value record = settings;
  const auto placed = [](FolderDescription item) {
    item.setPath(placeOf(item.path()));
    return item.toValue();
  };
  const auto sources = ActionsTools::getSourcesForAction(settings);
  ZAN_Value list = ZAN_Value::array();
  for (const FolderDescription& source : sources) list.append(placed(source));
  if (!sources.empty()) record.setValue("ItemsListOfSourcePath", std::move(list));
  const FolderDescription destination = ActionsTools::getDestinationForAction(settings);
  if (!destination.isNull()) record.setValue("ItemsDestination", placed(destination));
  return record;
}

}  // namespace

std::vector<std::string> proposedExclusions(const ZAN_Value& settings) {
  std::vector<std::string> patterns;
  const ZAN_Value& known = settings[CopyKey::exclusions];
  for (const std::string_view pattern : kScratch) {
    if (std::ranges::any_of(known.elements(),
                            [&](const ZAN_Value& one) { return one.stringView() == pattern; }))
      continue;
    for (const FolderDescription& source : ActionsTools::getSourcesForAction(settings)) {
      if (!hasFitting(std::string(source.path()), pattern)) continue;
      patterns.emplace_back(pattern);
      break;
    }
  }
  return patterns;
}

std::optional<FolderTrouble> checkCopies(ProgrammedAction& root, const ZAN_Value& settings) {
  const ZAN_Value placed = byPlace(settings);
  ProgrammedAction::Nodes actions;
  root.getAllActionsInOneList(actions, false);
  for (const ProgrammedAction* other : actions) {
    if (other->getReference() == settings.integer("Ref")) continue;
    auto copy = ActionsTools::copyInDispute(settings, other->getSettings());
    if (!copy && ActionsTools::copyInDispute(placed, byPlace(other->getSettings())))
      copy = ActionsTools::getDestinationForAction(settings).path();
    if (copy)
      return FolderTrouble{FolderTrouble::Kind::copiedByOther, *copy, false, other->getTitle(),
                           other->getReference()};
  }
  return {};
}

Result<std::int64_t> confirmDeletions(ProgrammedAction& root, std::int64_t reference,
                                      std::optional<std::int64_t> shown) {
  ProgrammedAction* node = root.actionForReference(reference);
  if (node == nullptr)
    return Error{ErrorKind::absent,
                 std::to_string(reference) + ": no action or group has this reference"};
  ZAN_Value record = node->getSettings();
  const std::int64_t count = record.integer(DeletionKey::toConfirm);
  if (count <= 0)
    return Error{ErrorKind::refused,
                 std::to_string(reference) + ": its last run did not ask to delete anything"};
  if (shown && *shown != count)
    return Error{ErrorKind::refused, std::to_string(reference) + ": another run has counted " +
                                         std::to_string(count) + " files meanwhile"};
  record.setValue(DeletionKey::confirmed, count);
  record.setValue(DeletionKey::toConfirm, 0);
  node->changeSettings(record);
  return count;
}

}  // namespace corvana
