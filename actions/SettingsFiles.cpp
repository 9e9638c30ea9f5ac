#include "actions/SettingsFiles.h"

#include <limits>

#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/LocalDates.h"

namespace corvana {

namespace {
constexpr std::string_view kDateLocale = "ZAN_StringUtils_dateLocale";
}

ZAN_Value SettingsFiles::read(Cached& cached, std::string_view name) {
  const std::string path = mFiles.folder().pathOf(name);
  if (!cached.read || cached.object.identity != mFiles.identity(path)) {
    DataFiles::Object object = mFiles.readObject(path);
    cached.read = object.readNow;
    // What was known before holds until it can be read again.
    if (!object.readNow) return cached.object.value;
    cached.object = std::move(object);
    if (!cached.object.value.isDictionary()) cached.object.value = {};
  }
  return cached.object.value;
}

Outcome SettingsFiles::save(Cached& cached, std::string_view name, const ZAN_Value& settings,
                            DataFiles::Saving saving) {
  const DataFiles::Lock held = mFiles.lock(name);
  const std::string path = mFiles.folder().pathOf(name);
  if (!cached.read && ZAN_FilesUtils::exists(path) && !mFiles.readObject(path).readNow)
    return Error{ErrorKind::unreadable, path + ": cannot be read; nothing is written over it"};
  Outcome outcome = mFiles.writeObjectToFile(settings, name, saving);
  cached.read = static_cast<bool>(outcome);
  if (outcome) {
    cached.object = {.value = settings, .identity = mFiles.identity(mFiles.folder().pathOf(name))};
  }
  return outcome;
}

Outcome SettingsFiles::saveMainAppSettings(const ZAN_Value& settings) {
  return save(mMainApp, DataFolder::kSettings, settings, DataFiles::Saving::now);
}

Outcome SettingsFiles::saveSchedulerSettings(const ZAN_Value& settings) {
  return save(mScheduler, DataFolder::kSchedulerSettings, settings, DataFiles::Saving::soon);
}

Outcome SettingsFiles::setMainAppSetting(const ZAN_Value& value, std::string_view key) {
  const DataFiles::Lock held = lockMainAppSettings();
  ZAN_Value settings = mainAppSettings();
  if (settings.isNull()) settings = ZAN_Value::dictionary();
  if (value.isNull()) {
    settings.removeKey(key);
  } else {
    settings.setValue(key, value);
  }
  return saveMainAppSettings(settings);
}

Outcome SettingsFiles::incrementCounterInInMainPrefsForKey(std::string_view key) {
  const DataFiles::Lock held = lockMainAppSettings();
  const std::int64_t count = mainAppSettingForKey(key).integerValue() + 1;
  const bool small = count <= std::numeric_limits<int>::max();
  return setMainAppSetting(ZAN_Value::integer(count, small ? 'i' : 'q'), key);
}

std::optional<std::string> SettingsFiles::dateLocaleFromSettings() {
  return mainAppSettingForKey(kDateLocale).asString();
}

void SettingsFiles::applyDateLocaleFromSettings(ZAN_StringUtils& strings) {
  applyDateLocaleFromSettings();
  strings.setDateRegion(dateLocaleFromSettings().value_or(""));
}

void SettingsFiles::applyDateLocaleFromSettings() {
  mFiles.dates().setDateRegion(dateLocaleFromSettings().value_or(""));
}

ZAN_Value SettingsFiles::compressPassword(std::string_view password) {
  return ZAN_Value::data(ZAN_Compression::compressedData(std::as_bytes(std::span(password))));
}

std::string SettingsFiles::decompressPassword(const ZAN_Value& stored) {
  if (!stored.isData()) return stored.string();
  const auto bytes = ZAN_Compression::decompressedData(stored.bytes());
  if (!bytes) return {};
  return {reinterpret_cast<const char*>(bytes->data()), bytes->size()};
}

}  // namespace corvana
