#pragma once

#include <memory>
#include <string>

#include "platform/Platform.h"

namespace corvana {

class Messages;
class ZAN_MountVolume;
class ZAN_StringTable;

/// Has the volume of an alias file mounted. Thread: main; nothing here waits.
class AliasMounter {
 public:
  /// `toolsFolder`: where the helper tools lie.
  AliasMounter(Platform& platform, Messages& messages, const ZAN_StringTable& texts,
               std::string toolsFolder);

  /// Tells the user that it tries, and runs the helper "mountvolume"; one that has not ended after
  /// 10 s is ended and the user told. Without the helper the alias is resolved as if opened.
  void mountVolumeFromAlias(const std::string& aliasPath);
  /// Tries both ways one after the other and writes what came of them to the desktop, as "Corvana
  /// Log (Alias %@).txt".
  void checkMountVolume(const std::string& aliasPath);

 private:
  struct Attempt;
  class Examination;

  void watch(const std::shared_ptr<Attempt>& attempt);

  Platform& m;
  Messages& mMessages;
  const ZAN_StringTable& mTexts;
  std::string mToolsFolder;
};

}  // namespace corvana
