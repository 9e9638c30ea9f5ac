#include "actions/FolderDescription.h"

#include <utility>

namespace corvana {

namespace {

constexpr std::string_view kPath = "VolumeFolderPath";
constexpr std::string_view kPathLocalized = "VolumeFolderPathLocalized";
constexpr std::string_view kName = "VolumeFolderName";
constexpr std::string_view kSize = "VolumeFolderVolumeSize";
constexpr std::string_view kDate = "VolumeFolderVolumeDate";
constexpr std::string_view kUuid = "uuid";
constexpr std::string_view kFileSystem = "VolumeFolderFileSystem";
constexpr std::string_view kSource = "VolumeFolderSource";
constexpr std::string_view kRoot = "VolumeFolderRoot";

bool differ(std::uint64_t one, std::uint64_t other) {
  return one != 0 && other != 0 && one != other;
}

}  // namespace

FolderDescription::FolderDescription(ZAN_Value stored) {
  if (stored.isDictionary()) mStored = std::move(stored);
}

std::string_view FolderDescription::path() const { return mStored[kPath].stringView(); }
std::string_view FolderDescription::pathLocalized() const {
  return mStored[kPathLocalized].stringView();
}
std::string_view FolderDescription::volumeName() const { return mStored[kName].stringView(); }
std::uint64_t FolderDescription::volumeSize() const { return mStored[kSize].unsignedValue(); }
std::uint64_t FolderDescription::volumeDate() const { return mStored[kDate].unsignedValue(); }
std::string_view FolderDescription::uuid() const { return mStored[kUuid].stringView(); }

std::string_view FolderDescription::fileSystem() const { return mStored[kFileSystem].stringView(); }
std::string_view FolderDescription::source() const { return mStored[kSource].stringView(); }
std::string_view FolderDescription::root() const { return mStored[kRoot].stringView(); }

bool FolderDescription::isSameVolume(const FolderDescription& other) const {
  return volumeSize() == other.volumeSize() && volumeDate() == other.volumeDate() &&
         volumeName() == other.volumeName();
}

bool FolderDescription::hasOtherFigures(const FolderDescription& other) const {
  return differ(volumeSize(), other.volumeSize()) || differ(volumeDate(), other.volumeDate());
}

FolderDescription& FolderDescription::set(std::string_view key, ZAN_Value value) {
  if (isNull()) mStored = ZAN_Value::dictionary();
  mStored.setValue(key, std::move(value));
  return *this;
}

FolderDescription& FolderDescription::setPath(std::string_view path) { return set(kPath, path); }
FolderDescription& FolderDescription::setPathLocalized(std::string_view path) {
  return set(kPathLocalized, path);
}
FolderDescription& FolderDescription::setVolumeName(std::string_view name) {
  return set(kName, name);
}
FolderDescription& FolderDescription::setVolumeSize(ZAN_Value bytes) {
  return set(kSize, std::move(bytes));
}
FolderDescription& FolderDescription::setVolumeDate(ZAN_Value date) {
  return set(kDate, std::move(date));
}
FolderDescription& FolderDescription::setUuid(std::string_view uuid) { return set(kUuid, uuid); }
FolderDescription& FolderDescription::setMounted(std::string_view fileSystem,
                                                 std::string_view source, std::string_view root) {
  return set(kFileSystem, fileSystem).set(kSource, source).set(kRoot, root);
}

}  // namespace corvana
