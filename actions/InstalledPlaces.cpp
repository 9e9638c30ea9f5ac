#include "actions/InstalledPlaces.h"

#include <algorithm>
#include <filesystem>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Machine.h"

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

namespace {

constexpr std::string_view kProduct = "Corvana 9";

std::string joined(const std::string& folder, std::initializer_list<std::string_view> names) {
  std::string path = folder;
  for (const std::string_view name : names) path = ZAN_FilesUtils::joinedPath(path, name);
  return path;
}

}  // namespace

InstallPaths::InstallPaths(const Machine& machine) {
  using Utils = ZAN_FilesUtils;
  const std::string executable = machine.executablePath();
  const std::string bundle = machine.bundlePath();
  mIsMainApp = executable.ends_with(kProduct);
  std::string_view main = bundle;
  for (int level = 0; level < 3 && !mIsMainApp; ++level) main = Utils::parentPath(main);

  const std::string_view programs = Utils::parentPath(executable);
  const std::string_view contents = Utils::lastPathComponent(Utils::parentPath(programs));
  const std::string_view scheduler =
      mIsMainApp ? "Corvana 9 Scheduler.app" : Utils::lastPathComponent(bundle);

  mPaths[mainAppBundle] = main;
  mPaths[mainAppExecutable] =
      joined(mPaths[mainAppBundle], {contents, Utils::lastPathComponent(programs), kProduct});
  mPaths[mainAppResources] = joined(mPaths[mainAppBundle], {"Contents", "Resources"});
  const std::string& resources = mPaths[mainAppResources];
  mPaths[schedulerBundle] = joined(resources, {scheduler});
  mPaths[schedulerExecutable] =
      joined(mPaths[schedulerBundle], {"Contents", "MacOS",
                                       mIsMainApp ? std::string_view("Corvana 9 Scheduler")
                                                  : Utils::lastPathComponent(executable)});
  mPaths[schedulerResources] = joined(mPaths[schedulerBundle], {"Contents", "Resources"});
  mPaths[executeBundle] = joined(resources, {"Corvana 9 Execute.app"});
  mPaths[executeExecutable] =
      joined(mPaths[executeBundle], {"Contents", "MacOS", "Corvana 9 Execute"});
  mPaths[executeResources] = joined(mPaths[executeBundle], {"Contents", "Resources"});
  mPaths[launcherBundle] = joined(resources, {"Corvana 9 Launcher.app"});
  mPaths[shutDownBundle] = joined(resources, {"Corvana 9 Shutdown.app"});
  mPaths[adminLauncher] = joined(resources, {"adminlauncher"});
  mPaths[dataFileName] = "Corvana 9.cva9resource";
  mPaths[dataFile] = joined(resources, {mPaths[dataFileName]});
  mPaths[webAddress] = "https://corvana.example/";
  mPaths[versionAddress] = mPaths[webAddress] + "version/";
  mPaths[updateAddress] = mPaths[webAddress] + "update/";
}

const std::string& InstallPaths::installPathForCode(int code) const {
  static const std::string kNone;
  return code >= 0 && static_cast<std::size_t>(code) < mPaths.size()
             ? mPaths[static_cast<std::size_t>(code)]
             : kNone;
}

std::string InstallPaths::toolPath(std::string_view name) const {
  return joined(mPaths[mainAppResources], {"tools", name});
}

std::string InstallPaths::missingParts() const {
  constexpr Code kOfMainApp[] = {mainAppExecutable, launcherBundle, dataFile};
  const bool mainAppInstalled =
      std::any_of(std::begin(kOfMainApp), std::end(kOfMainApp),
                  [&](Code code) { return ZAN_FilesUtils::exists(mPaths[code]); });
  std::string text;
  for (int code = mainAppBundle; code <= dataFile; ++code) {
    const bool ofMainApp =
        std::find(std::begin(kOfMainApp), std::end(kOfMainApp), code) != std::end(kOfMainApp);
    if (ofMainApp && !mainAppInstalled) continue;
    const std::string& path = mPaths[static_cast<std::size_t>(code)];
    // A link is installed, even where what it leads to is not.
    std::error_code ignored;
    if (!ZAN_FilesUtils::exists(path) && !std::filesystem::is_symlink(path, ignored))
      text += "Missing: " + path + "\n";
  }
  return text;
}

void InstallPaths::reportMissingParts(const std::string& desktopFolder, SystemLog& log) const {
  const std::string text = missingParts();
  if (text.empty() || !ZAN_FilesUtils::isFolder(desktopFolder)) return;
  const std::string path = ZAN_FilesUtils::joinedPath(
      desktopFolder, mIsMainApp ? "Corvana Install Error.txt" : "Corvana Install Error2.txt");
  const Outcome outcome =
      ZAN_FileWriter({}).write(path, text, {.attributes = {}, .synchronise = false});
  if (!outcome) log.write(outcome.error().text);
}

}  // namespace corvana
