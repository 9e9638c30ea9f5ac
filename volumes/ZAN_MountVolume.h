#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Platform.h"

namespace corvana {

class Machine;
class Processes;
class SystemLog;

/// Disks by the system tools. Each call runs one and waits for its end. Thread: any.
class ZAN_MountVolume {
 public:
  ZAN_MountVolume(Processes& processes, const Machine& machine, SystemLog& log);

  /// Where the product's own tools lie.
  const std::string& toolsFolder() const { return mToolsFolder; }
  /// The full path of a system tool: the product's own, else that of the system; empty when there
  /// is none.
  std::string toolPath(std::string_view tool) const;

  /// What the tool prints; nothing without arguments, without the tool, or when it prints nothing
  /// or fails, whose reason is logged.
  std::optional<std::string> execute(std::string_view tool,
                                     const std::vector<std::string>& arguments) const;
  std::optional<std::string> executeDiskutilWithArgs(
      const std::vector<std::string>& arguments) const;
  std::optional<std::string> executeASRWithArgs(const std::vector<std::string>& arguments) const;

  /// Writes one partition over another, both by BSD name; what the tool prints.
  std::optional<std::string> restore(const std::string& source, const std::string& target) const;
  std::optional<std::string> setFormatType(const std::string& type,
                                           const std::string& partition) const;

  void mountPartition(const std::string& bsdName) const;
  /// Forces it off.
  void unmountPartition(const std::string& bsdName) const;
  /// Lets the volume go as the user does; false when it does not.
  bool ejectVolume(const std::string& path) const;
  std::string getBSDNameForVolumePath(const std::string& path) const;  ///< empty: unknown

  /// All disks and partitions, mounted or not: "AllDisks" (BSD names), "AllDisksAndPartitions"
  /// (dictionaries "DeviceIdentifier", "Size", "VolumeName", "Content", "MountPoint",
  /// "Partitions"). Null when the tool fails.
  ZAN_Value getAllVolumesDictionary() const;
  /// One of them: "DeviceIdentifier", "VolumeName", "MountPoint", …; null when unknown.
  ZAN_Value getInfosForBSDName(const std::string& bsdName) const;

 private:
  Processes& mProcesses;
  SystemLog& mLog;
  std::string mToolsFolder;
};

/// Mounts a share of a server in the background; whoever asked looks at the result until it is no
/// longer 0. Thread: main.
class ZAN_MountRemoteVolume {
 public:
  static constexpr std::int64_t kFailed = -1;  ///< also: never begun
  static constexpr std::int64_t kRunning = 0;
  static constexpr std::int64_t kMounted = 1;
  static constexpr std::int64_t kNotReachable = -2;
  static constexpr std::int64_t kNoAddress = -3;

  /// `toolsFolder`: where the helper "mountvolume" lies.
  ZAN_MountRemoteVolume(Platform& platform, std::string toolsFolder);

  /// `address`: "host/share" or with a scheme before it. Nothing begins when one of them is
  /// missing.
  void mountRemoteVolume(const std::optional<std::string>& address,
                         const std::optional<std::string>& user,
                         const std::optional<std::string>& password);
  std::int64_t getResult() const { return *mResult; }

  /// The address as it is mounted: blanks as "%20", "smb://" before one without a scheme; empty
  /// when there is none.
  static std::string addressFor(const std::string& address);
  /// The server's name in an address.
  static std::string hostOf(const std::string& address);

 private:
  Platform& m;
  std::string mToolsFolder;
  std::shared_ptr<std::int64_t> mResult;
};

}  // namespace corvana
