#include "core/work/ApplicationLists.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Processes.h"

namespace corvana {
namespace {

std::string nameOf(std::string_view path) {
  return std::string(ZAN_FilesUtils::nameWithoutExtension(path));
}

}  // namespace

void ApplicationLists::update(Processes& processes) {
  std::unordered_set<std::string> opened;
  for (const RunningProcess& process : processes.running())
    opened.insert(nameOf(process.bundlePath.empty() ? process.executable : process.bundlePath));
  mQuitted.clear();
  for (const std::string& name : mOpened)
    if (!opened.contains(name)) mQuitted.insert(name);
  mOpened = std::move(opened);
}

bool ApplicationLists::isOpened(std::string_view path) const {
  return mOpened.contains(nameOf(path));
}

bool ApplicationLists::didQuit(std::string_view path) const {
  return mQuitted.contains(nameOf(path));
}

}  // namespace corvana
