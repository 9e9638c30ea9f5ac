#include "command/CommandTexts.h"

#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Machine.h"

namespace corvana {
namespace {

constexpr std::string_view kResources =
    "Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/Resources";
constexpr int kLevels = 4;

}  // namespace

Outcome loadAgentTexts(ZAN_StringTable& texts, const Machine& machine) {
  const std::string executable = machine.executablePath();
  std::string_view folder = ZAN_FilesUtils::parentPath(executable);
  for (int level = 0; level < kLevels; ++level) {
    for (const std::string_view inside : {"", "lib/corvana9"}) {
      const std::string product =
          inside.empty() ? std::string(folder) : ZAN_FilesUtils::joinedPath(folder, inside);
      const std::string resources = ZAN_FilesUtils::joinedPath(product, kResources);
      if (ZAN_FilesUtils::isFolder(resources))
        return texts.load(resources, machine.languageNames());
    }
    folder = ZAN_FilesUtils::parentPath(folder);
  }
  return Error{ErrorKind::absent, executable + ": the agent is not installed beside it"};
}

}  // namespace corvana
