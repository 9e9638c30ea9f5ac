#include "core/machine/SystemInformation.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "core/record/Records.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

namespace {

constexpr std::uint64_t kLargest = 1 << 24;
const std::string kLoginItemsCopy = "LoginItemsCopy";

std::string filled(std::string_view format, const std::string& text) {
  return ZAN_StringUtils::format(format, {text});
}

Outcome writeText(const std::string& path, const std::string& text) {
  return ZAN_FileWriter({}).write(path, text, {.attributes = {}, .synchronise = false});
}

}  // namespace

std::string SystemInformation::getLoginItems() const {
  std::string text = "***** Login Items:\n";
  for (const std::string& path : m.platform.machine.loginItems()) {
    text += filled("%@\n", ZAN_FilesUtils::exists(path) ? path : path + " [NOT FOUND]");
  }
  const std::string home = m.platform.machine.homeFolder();
  const auto ofHome = [&](const char* folder) { return ZAN_FilesUtils::joinedPath(home, folder); };
  for (const std::string& folder :
       {std::string("/Library/LaunchDaemons"), std::string("/Library/LaunchAgents"),
        ofHome("Library/LaunchDaemons"), ofHome("Library/LaunchAgents")}) {
    text += appendListItemsOf(folder);
  }
  return text;
}

std::string SystemInformation::appendListItemsOf(const std::string& folder) {
  const auto names = ZAN_FilesUtils::listFolder(folder);
  if (!names) return {};
  std::string text = filled("\n***** Items in %@:\n", folder);
  for (const std::string& name : *names) {
    if (name == ".DS_Store") continue;
    const auto file = ZAN_FilesUtils::readFile(ZAN_FilesUtils::joinedPath(folder, name), kLargest);
    const auto list =
        file ? ZAN_PropertyList::propertyListWithData(std::as_bytes(std::span(file->bytes)))
             : Result<ZAN_Value>(file.error());
    if (!list || !list->isDictionary()) {
      text += filled("%@ [No Dictionary]\n", name);
      continue;
    }
    text += name;
    for (const char* key : {"Label", "Program"}) {
      const ZAN_Value& value = list->value(key);
      if (!value.isNull())
        text += ZAN_StringUtils::format(" [%@: %@]", {key, ZAN_PropertyList::description(value)});
    }
    const ZAN_Value& arguments = list->value("ProgramArguments");
    if (arguments.isArray() && !arguments.empty() && arguments.at(0).isString())
      text += filled(" [ProgramArguments: %@]", arguments.at(0).string());
    text += "\n";
  }
  return text;
}

void SystemInformation::saveListLoginItems() {
  const std::string text = getLoginItems();
  const auto saved = m.platform.machine.userDefault(kLoginItemsCopy).asString();
  if (saved && *saved == text) return;
  m.platform.machine.setUserDefault(kLoginItemsCopy, text);
  const std::string folder = m.store.folder().loginItemsFolderPath();
  const Outcome made = ZAN_FilesUtils::createFolder(folder);
  const std::string name = m.store.dates().calendar().format(m.platform.clock.now(),
                                                             "%y_%m_%d %H_%M_%S Login Items.txt");
  const Outcome written = made ? writeText(ZAN_FilesUtils::joinedPath(folder, name), text) : made;
  if (!written) m.platform.systemLog.write(written.error().text);
}

ZAN_Value SystemInformation::processList() const {
  auto running = m.platform.processes.running();
  std::ranges::sort(running, {}, &RunningProcess::pid);
  ZAN_Value list = ZAN_Value::array();
  for (const RunningProcess& process : running) {
    ZAN_Value entry = ZAN_Value::dictionary({{"pid", static_cast<long long>(process.pid)}});
    if (!process.bundlePath.empty()) {
      const std::string_view bundle = ZAN_FilesUtils::lastPathComponent(process.bundlePath);
      entry.setValue("CFBundleName", ZAN_FilesUtils::pathWithoutExtension(bundle));
      entry.setValue("BundlePath", process.bundlePath);
    }
    if (!process.executable.empty()) entry.setValue("CFBundleExecutable", process.executable);
    list.append(std::move(entry));
  }
  return list;
}

Result<std::string> SystemInformation::saveListProcess() {
  std::string text;
  const ZAN_Value list = processList();
  for (const ZAN_Value& process : list.elements()) {
    const auto has = [&](const char* key) { return !process[key].isNull(); };
    if (has("pid")) text += ZAN_StringUtils::format("PID=%@ ", {process.integer("pid")});
    if (has("CFBundleName")) text += filled("%@ ", process.string("CFBundleName"));
    for (const char* key : {"CFBundleExecutable", "BundlePath", "CFBundleIdentifier"}) {
      if (!has(key)) continue;
      text += filled("(%@)", process.string(key));
      break;
    }
    text += "\n";
  }
  text += "\n" + getLoginItems();
  const std::string name = m.store.dates().calendar().format(m.platform.clock.now(),
                                                             "%y_%m_%d %H_%M_%S List Process.txt");
  const std::string path = ZAN_FilesUtils::joinedPath(m.platform.machine.downloadsFolder(), name);
  const Outcome written = writeText(path, text);
  if (written) return path;
  m.platform.systemLog.write(written.error().text);
  return written.error();
}

void SystemInformation::showAllDisksInformation() {
  m.platform.userInterface.setWindowText(Window::allDisks, {});
  // The tool may take its time.
  m.platform.runLoop.detachThread("disks", [this, tools = mTools] {
    m.platform.runLoop.performOnMain([this, list = tools.getAllVolumesDictionary()] {
      if (list.isNull()) m.platform.systemLog.write("diskutil: it did not list the disks");
      UserInterface& ui = m.platform.userInterface;
      ui.setWindowText(Window::allDisks,
                       list.isNull() ? std::string() : allDisksText(list, m.strings));
      if (!ui.isWindowVisible(Window::allDisks)) ui.showWindow(Window::allDisks);
    });
  });
}

std::string SystemInformation::allDisksText(const ZAN_Value& list, const ZAN_StringUtils& strings) {
  return filled("%@\n\n", extractObjectForKey("AllDisksAndPartitions", list, strings)) +
         filled("\n*********** Technical Raw Data **************\n%@",
                ZAN_PropertyList::description(list));
}

std::string SystemInformation::extractObjectForKey(const std::string& key, const ZAN_Value& in,
                                                   const ZAN_StringUtils& strings) {
  const ZAN_Value& array = in[key];
  return array.isArray() && !array.empty() ? extractFromArray(array, 0, strings) : std::string();
}

std::string SystemInformation::extractFromArray(const ZAN_Value& array, int level,
                                                const ZAN_StringUtils& strings) {
  std::string text;
  if (array.at(0).isString()) {
    for (const ZAN_Value& element : array.elements())
      text += (text.empty() ? "" : ", ") + ZAN_PropertyList::description(element);
    return text;
  }
  bool isFirst = true;
  for (std::size_t i = 0; i < array.size(); ++i) {
    const ZAN_Value& element = array.at(i);
    std::string piece;
    if (element.isDictionary()) {
      const ZAN_Value extracted = extractFromDictionary(element, strings);
      if (!extracted.isNull()) piece = ZAN_PropertyList::description(extracted);
      if (level != 0) piece = ZAN_StringUtils::format("#%d\t%@", {i + 1, piece});
    } else if (element.isArray()) {
      piece = extractFromArray(element, level + 1, strings);
    } else {
      continue;
    }
    text = std::exchange(isFirst, false) ? piece : ZAN_StringUtils::format("%@\n%@", {text, piece});
  }
  return text;
}

ZAN_Value SystemInformation::extractFromDictionary(const ZAN_Value& dictionary,
                                                   const ZAN_StringUtils& strings) {
  std::string text;
  if (const ZAN_Value& device = dictionary["DeviceIdentifier"]; !device.isNull())
    text = filled("%@\t", device.string());
  if (const ZAN_Value& size = dictionary["Size"]; !size.isNull()) {
    text = text.empty() ? strings.getSizeBytes(size.unsignedValue())
                        : text + filled("%@\t", strings.getShortSizeBytes(size.unsignedValue()));
  }
  if (const std::string name = dictionary.string("VolumeName"); !name.empty())
    text = text.empty() ? name : text + filled("%@: ", name);
  if (const ZAN_Value& content = dictionary["Content"]; !content.isNull())
    text = text.empty() ? content.string() : text + filled(" [%@]", content.string());
  if (const ZAN_Value& partitions = dictionary["Partitions"]; !partitions.isNull()) {
    // A disk that has nothing else is shown as its partitions are stored.
    if (text.empty()) return partitions;
    text += filled("\n%@", extractFromArray(partitions, 1, strings));
  }
  return text.empty() ? ZAN_Value() : ZAN_Value(text);
}

}  // namespace corvana
