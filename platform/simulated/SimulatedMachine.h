#pragma once

#include <map>
#include <set>
#include <utility>

#include "platform/Machine.h"

namespace corvana {

/// A machine whose home folder is a real folder, made by the test, and whose other traits are set
/// freely.
class SimulatedMachine final : public Machine {
 public:
  explicit SimulatedMachine(const std::string& home);

  std::string homeFolder() const override { return home; }
  std::string desktopFolder() const override { return desktop; }
  std::string downloadsFolder() const override { return downloads; }
  std::string configurationFolder() const override { return configuration; }
  std::string loginName() const override { return login; }
  std::string networkName() const override { return network; }
  std::string hostName() const override { return network; }
  std::string machineIdentifier() const override { return identifier; }
  std::int64_t userIdentifier() const override { return user; }
  std::string timeZoneName() const override { return timeZone; }
  std::string regionName() const override { return region; }
  std::vector<std::string> languageNames() const override { return languages; }
  int systemVersion() const override { return version; }
  std::string executablePath() const override { return executable; }
  std::string bundlePath() const override { return bundle; }
  bool isOwnedByRootAndSetUserId(const std::string& path) const override {
    return rootOwned.contains(path);
  }
  ZAN_Value userDefault(const std::string& key) const override;
  void setUserDefault(const std::string& key, const ZAN_Value& value) override;
  std::optional<StartupVolume> startupVolume() const override {
    ++startupVolumeReads;
    return onStartupVolumeRead ? onStartupVolumeRead(startupVolumeReads) : startup;
  }
  std::vector<std::string> loginItems() const override { return logins; }

  /// Places the product at `folder`/Corvana 9.app; nothing is made on disk. At first it is in
  /// "Applications" of the home folder.
  void setProductFolder(const std::string& folder);

  std::string home;
  std::string desktop;
  std::string downloads;
  std::string configuration;
  std::string login = "anna";
  std::string network = "annas-machine";
  std::string identifier = "5eed0123beef";
  std::int64_t user = 501;
  std::string timeZone = "UTC";
  std::string region = "en_US.UTF-8";
  std::vector<std::string> languages{"en"};
  int version = 101500;
  std::string executable;
  std::string bundle;
  std::set<std::string> rootOwned;
  std::map<std::string, ZAN_Value> userDefaults;
  std::optional<StartupVolume> startup;  ///< nothing: cannot be read
  /// Answers the nth reading of it instead, from 1.
  std::function<std::optional<StartupVolume>(int)> onStartupVolumeRead;
  mutable int startupVolumeReads = 0;
  std::vector<std::string> logins;
};

/// Keeps the lines that were written.
class SimulatedSystemLog final : public SystemLog {
 public:
  void write(const std::string& line) override { lines.push_back(line); }
  std::vector<std::string> lines;
};

/// A machine that sleeps, wakes and goes down when the test says so, and keeps what was asked.
class SimulatedPower final : public Power {
 public:
  void observe(Observer observer) override { mObserver = std::move(observer); }
  bool canWake() const override { return clockWakes; }
  Outcome scheduleWake(std::int64_t time, const std::string& identifier) override;
  void cancelWake(std::int64_t time, const std::string& identifier) override;
  Outcome shutDown() override;

  void willSleep() const;
  void didWake() const;
  void shutDownIsOff() const;

  std::set<std::int64_t> wakes;     ///< programmed now
  std::vector<std::string> events;  ///< "schedule 725889600", "cancel 725889600" in order
  Outcome wakeOutcome;              ///< what it answers; a refusal programs nothing
  bool clockWakes = true;
  std::string identifier;   ///< the last one given
  int shutDowns = 0;        ///< how often it was asked to power off
  Outcome shutDownOutcome;  ///< what it answers

 private:
  Observer mObserver;
};

}  // namespace corvana
