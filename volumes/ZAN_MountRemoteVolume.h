#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/Platform.h"

namespace corvana {

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
