#pragma once

#include <memory>
#include <string>

#include "platform/Platform.h"

namespace corvana {

class ZAN_MountVolume;
struct Records;

/// Has the volume of an alias file mounted. Thread: main; nothing here waits.
class AliasMounter {
 public:
  /// `toolsFolder`: where the helper tools lie.
  AliasMounter(Records& records, std::string toolsFolder);

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

  Records& m;
  std::string mToolsFolder;
};

}  // namespace corvana
