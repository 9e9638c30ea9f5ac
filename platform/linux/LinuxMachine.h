#pragma once

#include "platform/Machine.h"
#include "platform/linux/UserDefaults.h"

namespace corvana {

/// This machine, as the environment, the user database and the file system describe it.
class LinuxMachine final : public Machine {
 public:
  /// Where the system says which zone it is in, and the program file that runs.
  struct Places {
    std::string localTime = "/etc/localtime";
    std::string timeZone = "/etc/timezone";
    std::string executable = "/proc/self/exe";
    std::string machineId = "/etc/machine-id";
  };

  explicit LinuxMachine(const Places& places);
  LinuxMachine() : LinuxMachine(Places{}) {}

  std::string homeFolder() const override { return mHome; }
  /// The user's folders as the desktop has named them, else "Desktop" and "Downloads" of the home.
  std::string desktopFolder() const override;
  std::string downloadsFolder() const override;
  std::string configurationFolder() const override { return mConfiguration; }
  std::string loginName() const override;
  std::string networkName() const override;
  std::string hostName() const override;
  /// A digest of the identifier that the system was given at its installation, which is nobody
  /// else's business; without one of the network name.
  std::string machineIdentifier() const override;
  std::int64_t userIdentifier() const override;
  /// TZ, else the target of the local-time link, else the name in the time-zone file, else "UTC".
  std::string timeZoneName() const override;
  std::string regionName() const override;
  std::vector<std::string> languageNames() const override;
  int systemVersion() const override { return 101500; }
  std::string executablePath() const override { return mExecutable; }
  /// The folder of the program when it lies in no bundle.
  std::string bundlePath() const override;
  bool isOwnedByRootAndSetUserId(const std::string& path) const override;
  ZAN_Value userDefault(const std::string& key) const override { return mDefaults.value(key); }
  void setUserDefault(const std::string& key, const ZAN_Value& value) override {
    mDefaults.setValue(key, value);
  }
  std::optional<StartupVolume> startupVolume() const override;
  /// The programs of the desktop's autostart entries.
  std::vector<std::string> loginItems() const override;

 private:
  std::string userFolder(const std::string& key, const std::string& otherwise) const;

  Places mPlaces;
  std::string mHome;
  std::string mConfiguration;
  std::string mExecutable;
  UserDefaults mDefaults;
};

/// What the desktop starts at login.
class LoginItems {
 public:
  /// `folders`: those with autostart entries, the user's own first: an entry there stands for those
  /// of the same name behind it. `path`: where programs are looked for, as in PATH.
  LoginItems(std::vector<std::string> folders, std::string path);
  /// The folders and the search path that this process's environment names.
  static LoginItems ofUser(const std::string& configurationFolder);

  /// The programs of the entries that are switched on, in the order of the entries' names: the full
  /// path, or the word of the entry for a program that is not found.
  std::vector<std::string> programs() const;

 private:
  std::string fullPath(const std::string& program) const;

  std::vector<std::string> mFolders;
  std::string mPath;
};

/// The machine's system log, under "corvana9".
class Syslog final : public SystemLog {
 public:
  Syslog();
  ~Syslog() override;
  void write(const std::string& line) override;
};

/// The standard error stream, with the time of day before each line. Thread: any.
class StandardErrorLog final : public SystemLog {
 public:
  void write(const std::string& line) override;
};

}  // namespace corvana
