#include "execute/plain/HalfFiles.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

ZAN_Descriptor folderOf(const HeldFolder& copy, const std::string& item) {
  return openPathBelow(copy.descriptor(),
                       std::string(ZAN_FilesUtils::parentPath("/" + item)).substr(1),
                       O_PATH | O_DIRECTORY);
}

std::string halfOf(const std::string& item) {
  return ZAN_FilesUtils::joinedPath(HalfFiles::kName, ZAN_FilesUtils::lastPathComponent(item));
}

}  // namespace

bool HalfFiles::has(const HeldFolder& copy, const std::string& item) {
  const ZAN_Descriptor folder = folderOf(copy, item);
  struct stat state {};
  return folder &&
         ::fstatat(folder.get(), halfOf(item).c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(state.st_mode);
}

void HalfFiles::take(const HeldFolder& copy, const std::string& left, const std::string& item) {
  const ZAN_Descriptor folder = folderOf(copy, item);
  if (!folder) return;
  ::mkdirat(folder.get(), std::string(kName).c_str(), 0700);
  // At worst it is taken for something that the source no longer has.
  [[maybe_unused]] const int taken =
      ::renameat(folder.get(), std::string(ZAN_FilesUtils::lastPathComponent(left)).c_str(),
                 folder.get(), halfOf(item).c_str());
}

}  // namespace corvana
