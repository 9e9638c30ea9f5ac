// The volumes command: what is mounted, how it is told apart, and its free space over time.

#include <algorithm>
#include <array>
#include <cmath>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/FolderDescription.h"
#include "command/CommandHome.h"
#include "volumes/VolumesHistory.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

namespace {

/// One that is asked for the first time may have to look over the network; all have this together.
constexpr double kSecondsForVolumes = 2.5;
constexpr double kHour = 3'600;
constexpr double kWeek = 7 * 24 * kHour;
constexpr int kColumns = 56;
constexpr std::int64_t kUsualWeeks = 26;
constexpr std::int64_t kMostWeeks = 260;
constexpr std::array<std::string_view, 8> kBars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

/// A mounted volume as ZAN_MountedVolumes describes it, or one of which only the history is left,
/// with "mounted" and its hours as "freeSpace".
ZAN_Value knownVolumes(CommandHome& home) {
  const auto system = home.volumes(kSecondsForVolumes, true);
  ZAN_MountedVolumes mounted(*system);
  std::vector<ZAN_Value> volumes = mounted.getAllMountedVolumes();
  const std::size_t count = volumes.size();
  std::vector<ZAN_Value> hours(count, ZAN_Value::array());
  if (home.isThere()) {
    const ZAN_Value list = FreeSpaceHistory(home.store(), mounted).readVolumesSurveyorList();
    for (const ZAN_Value& entry : list.elements()) {
      const auto known = std::ranges::find_if(volumes, [&](const ZAN_Value& volume) {
        return FreeSpaceHistory::isEntryOf(entry, volume);
      });
      const auto place = static_cast<std::size_t>(known - volumes.begin());
      if (known == volumes.end()) {
        const FolderDescription gone(entry);
        volumes.push_back(ZAN_Value::dictionary({{"volName", gone.volumeName()},
                                                 {"volSize", gone.volumeSize()},
                                                 {"volFreeSize", entry["E"]},
                                                 {"volDate", gone.volumeDate()}}));
        hours.emplace_back();
      }
      hours[place] = FreeSpaceHistory::records(entry);
    }
  }
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    volumes[i].setValue("mounted", i < count);
    volumes[i].setValue("freeSpace", hours[i]);
  }
  return ZAN_Value::array(std::move(volumes));
}

/// How much of the volume was free, a bar for each stretch of time, blank where nobody looked.
std::string chart(const ZAN_Value& volume, ReferenceTime now, double seconds) {
  std::vector<std::optional<double>> columns(kColumns);
  for (const ZAN_Value& hour : volume["freeSpace"].elements()) {
    const double age = now - hour["D"].doubleValue();
    const auto column = kColumns - 1 - static_cast<std::int64_t>(age / seconds * kColumns);
    if (age < 0 || column < 0) continue;
    columns[static_cast<std::size_t>(column)] = hour["E"].doubleValue();
  }
  const double size = volume["volSize"].doubleValue();
  std::string text;
  for (const auto& free : columns) {
    if (!free) {
      text += ' ';
      continue;
    }
    const double part = *free / size;
    text += kBars[static_cast<std::size_t>(std::clamp(part, 0.0, 0.999) * kBars.size())];
  }
  return text;
}

/// So many weeks as there is something to show of, within what is usual.
std::int64_t usualWeeks(const ZAN_Value& volume, ReferenceTime now) {
  const auto hours = volume["freeSpace"].elements();
  if (hours.empty()) return 0;
  // Two weeks are two although the oldest hour began a little earlier.
  const double age = now - hours.front()["D"].doubleValue() - 24 * kHour;
  return static_cast<std::int64_t>(
      std::clamp(std::ceil(age / kWeek), 0.0, static_cast<double>(kUsualWeeks)));
}

bool hasHourWithin(const ZAN_Value& volume, ReferenceTime now, double seconds) {
  return std::ranges::any_of(volume["freeSpace"].elements(), [&](const ZAN_Value& hour) {
    return now - hour["D"].doubleValue() < seconds;
  });
}

constexpr std::string_view kVolumeLines =
    "{*{volName}{:place}\n"
    "{volSize!  does not answer\n}"
    "{volSize?  {volFreeSize:size} of {volSize:size} free ({:percent} %)"
    "{mounted?, {volKind}{:device}{:rights}}\n"
    "{mounted?  told by its size, {volSize:bytes} bytes{uuid?, and its UUID, {uuid}}\n}"
    "{:week}{:weeks}}}";

std::string placeOf(const ZAN_Value& volume, const CommandHome& home) {
  if (volume["mounted"].boolValue())
    return volume["volName"] == volume["volPath"] ? std::string()
                                                  : " at " + printable(volume.string("volPath"));
  const auto hours = volume["freeSpace"].elements();
  return hours.empty()
             ? ", not mounted"
             : ", not mounted, last seen " + home.dateText(hours.back()["D"].doubleValue());
}

std::string deviceOf(const ZAN_Value& volume) {
  const std::string device =
      volume.string(volume["isServer"].boolValue() ? "connection" : "bsdName");
  return device.empty() ? std::string() : " on " + printable(device);
}

/// The first chart shows a week already.
std::string longerChart(const ZAN_Value& volume, std::int64_t weeks, ReferenceTime now) {
  const double longer = static_cast<double>(weeks) * kWeek;
  if (weeks <= 1 || !hasHourWithin(volume, now, longer)) return {};
  std::string label = "  free, " + std::to_string(weeks) + " weeks";
  label.resize(17, ' ');
  return label + '|' + chart(volume, now, longer) + "|\n";
}

}  // namespace

Answer volumesCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto weeks = arguments.number("--weeks", 1, kMostWeeks);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  const ZAN_Value volumes = knownVolumes(home);
  const ZAN_StringUtils strings(home.machine().regionName(), home.machine().timeZoneName());
  TextForm form(home.calendar());
  form.with("place", [&](const ZAN_Value& volume) { return placeOf(volume, home); });
  form.with("device", deviceOf);
  form.with("rights", [](const ZAN_Value& volume) {
    return volume.contains("writable") && !volume["writable"].boolValue() ? ", read only" : "";
  });
  form.with("size", [&](const ZAN_Value& bytes) {
    return strings.getShortSizeBytes(bytes.unsignedValue());
  });
  form.with("bytes", [&](const ZAN_Value& bytes) {
    return strings.getUnsignedWithSeparators(bytes.unsignedValue());
  });
  form.with("percent", [](const ZAN_Value& volume) {
    return std::to_string(volume["volFreeSize"].unsignedValue() * 100 /
                          volume["volSize"].unsignedValue());
  });
  form.with("week", [&](const ZAN_Value& volume) {
    return hasHourWithin(volume, home.now(), kWeek)
               ? "  free, 7 days   |" + chart(volume, home.now(), kWeek) + "|\n"
               : std::string();
  });
  form.with("weeks", [&](const ZAN_Value& volume) {
    return longerChart(volume, weeks.value_or(usualWeeks(volume, home.now())), home.now());
  });
  return {volumes, form.fill(kVolumeLines, volumes)};
}

}  // namespace corvana
