#include "actions/DataFolder.h"

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {
constexpr std::string_view kSupportFolder = "Library/Application Support";
}

DataFolder::DataFolder(std::string homeFolder)
    : mHome(std::move(homeFolder)),
      mFolder(ZAN_FilesUtils::joinedPath(ZAN_FilesUtils::joinedPath(mHome, kSupportFolder),
                                         "Corvana 9")) {}

std::string DataFolder::dataFolderPathWithFileName(std::optional<std::string_view> name) const {
  // Where this fails, so does what is then done with the path, and that is reported.
  (void)ZAN_FilesUtils::createFolder(mFolder, 0700);
  return name ? pathOf(*name) : mFolder;
}

std::string DataFolder::pathOf(std::string_view name) const {
  return ZAN_FilesUtils::joinedPath(mFolder, name);
}

std::string DataFolder::hiddenFolderPath() const {
  return ZAN_FilesUtils::joinedPath(ZAN_FilesUtils::joinedPath(mHome, kSupportFolder),
                                    ".Corvana 9");
}

std::string DataFolder::userLogsFolderPath() const {
  std::string path = ZAN_FilesUtils::joinedPath(mHome, "Library/Logs");
  (void)ZAN_FilesUtils::createFolder(path, 0700);
  return path;
}

std::optional<std::string> DataFolder::aliasPathForName(std::string_view name) const {
  for (const char* suffix : {"", " alias"}) {
    std::string path =
        ZAN_FilesUtils::joinedPath(aliasFolderPath(), std::string(name).append(suffix));
    if (ZAN_FilesUtils::exists(path)) return path;
  }
  return {};
}

std::string DataFolder::subFolder(std::string_view name) const {
  std::string path = dataFolderPathWithFileName(name);
  (void)ZAN_FilesUtils::createFolder(path);
  return path;
}

}  // namespace corvana
