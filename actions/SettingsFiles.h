#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/DataFiles.h"

namespace corvana {

class ZAN_StringUtils;

/// The settings of the main application and those of the scheduler. Both are read from disk only
/// when the file's identity changed. Thread: main.
class SettingsFiles {
 public:
  explicit SettingsFiles(DataFiles& files) : mFiles(files) {}

  /// A dictionary, or null when there is no file.
  ZAN_Value mainAppSettings() { return read(mMainApp, DataFolder::kSettings); }
  Outcome saveMainAppSettings(const ZAN_Value& settings);
  ZAN_Value mainAppSettingForKey(std::string_view key) { return mainAppSettings().value(key); }
  /// Null removes the key. Read again, changed and written under the file's lock.
  Outcome setMainAppSetting(const ZAN_Value& value, std::string_view key);
  /// Adds one to an integer of the main application's settings; a missing one counts as 0.
  Outcome incrementCounterInInMainPrefsForKey(std::string_view key);
  /// The region for dates that the user chose in the main application, under
  /// "ZAN_StringUtils_dateLocale"; nothing: that of the system.
  std::optional<std::string> dateLocaleFromSettings();
  /// Hands it, or none, to the text helpers. Those of the store itself are always meant too.
  void applyDateLocaleFromSettings(ZAN_StringUtils& strings);
  void applyDateLocaleFromSettings();

  ZAN_Value schedulerSettings() { return read(mScheduler, DataFolder::kSchedulerSettings); }
  Outcome saveSchedulerSettings(const ZAN_Value& settings);

  /// For a change of a settings file that reads first; may be nested.
  [[nodiscard]] DataFiles::Lock lockMainAppSettings() { return mFiles.lock(DataFolder::kSettings); }
  [[nodiscard]] DataFiles::Lock lockSchedulerSettings() {
    return mFiles.lock(DataFolder::kSchedulerSettings);
  }

  /// A password as it is stored: its text compressed. This is compression, not protection.
  static ZAN_Value compressPassword(std::string_view password);
  /// Empty for null and for what cannot be decompressed; a text is taken as it is.
  static std::string decompressPassword(const ZAN_Value& stored);

 private:
  struct Cached {
    DataFiles::Object object;
    bool read = false;
  };
  ZAN_Value read(Cached& cached, std::string_view name);
  Outcome save(Cached& cached, std::string_view name, const ZAN_Value& settings,
               DataFiles::Saving saving);

  DataFiles& mFiles;
  Cached mMainApp;
  Cached mScheduler;
};

}  // namespace corvana
