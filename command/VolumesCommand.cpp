// The volumes command: what is mounted, how it is told apart, and its free space over time.

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/qt/GvfsShares.h"
#include "volumes/FreeSpaceHistory.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

namespace {

/// One that is asked for the first time may have to look over the network.
constexpr double kSecondsForAVolume = 3;
constexpr double kHour = 3'600;
constexpr double kWeek = 7 * 24 * kHour;
constexpr int kColumns = 56;
constexpr std::int64_t kUsualWeeks = 26;
constexpr std::int64_t kMostWeeks = 260;
constexpr std::array<std::string_view, 8> kBars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

/// A volume that is mounted, or of which only the history is left.
struct KnownVolume {
  ZAN_Value infos;  ///< as ZAN_MountedVolumes describes it
  ZAN_Value hours = ZAN_Value::array();
  bool isMounted = false;

  std::uint64_t size() const { return infos["volSize"].unsignedValue(); }
  std::uint64_t free() const { return infos["volFreeSize"].unsignedValue(); }
};

bool isOf(const ZAN_Value& entry, const ZAN_Value& infos) {
  return entry["VolumeFolderName"] == infos["volName"] &&
         entry["VolumeFolderVolumeSize"].unsignedValue() == infos["volSize"].unsignedValue() &&
         entry["VolumeFolderVolumeDate"].unsignedValue() == infos["volDate"].unsignedValue();
}

std::vector<KnownVolume> knownVolumes(CommandHome& home) {
  std::vector<KnownVolume> volumes;
  LinuxVolumes system(home.machine().loginName(), home.machine().homeFolder());
  system.setPatience(kSecondsForAVolume);
  system.setShares(GvfsShares::now());
  ZAN_MountedVolumes mounted(system);
  for (ZAN_Value& infos : mounted.getAllMountedVolumes())
    volumes.push_back({.infos = infos, .isMounted = true});
  if (!home.isThere()) return volumes;
  const ZAN_Value list = FreeSpaceHistory(home.store(), mounted).readVolumesSurveyorList();
  for (const ZAN_Value& entry : list.elements()) {
    auto volume = std::ranges::find_if(
        volumes, [&](const KnownVolume& known) { return isOf(entry, known.infos); });
    if (volume == volumes.end()) {
      volumes.push_back(
          {.infos = ZAN_Value::dictionary({{"volName", entry["VolumeFolderName"]},
                                           {"volSize", entry["VolumeFolderVolumeSize"]},
                                           {"volFreeSize", entry["E"]},
                                           {"volDate", entry["VolumeFolderVolumeDate"]}})});
      volume = volumes.end() - 1;
    }
    volume->hours = FreeSpaceHistory::records(entry);
  }
  return volumes;
}

/// How much of the volume was free, a bar for each stretch of time, blank where nobody looked.
std::string chart(const KnownVolume& volume, ReferenceTime now, double seconds) {
  std::vector<std::optional<double>> columns(kColumns);
  for (const ZAN_Value& hour : volume.hours.elements()) {
    const double age = now - hour["D"].doubleValue();
    const auto column = kColumns - 1 - static_cast<std::int64_t>(age / seconds * kColumns);
    if (age < 0 || column < 0) continue;
    columns[static_cast<std::size_t>(column)] = hour["E"].doubleValue();
  }
  std::string text;
  for (const auto& free : columns) {
    if (!free || volume.size() == 0) {
      text += ' ';
      continue;
    }
    const double part = *free / static_cast<double>(volume.size());
    text += kBars[static_cast<std::size_t>(std::clamp(part, 0.0, 0.999) * kBars.size())];
  }
  return text;
}

/// So many weeks as there is something to show of, within what is usual.
std::int64_t usualWeeks(const KnownVolume& volume, ReferenceTime now) {
  const auto hours = volume.hours.elements();
  if (hours.empty()) return 0;
  // Two weeks are two although the oldest hour began a little earlier.
  const double age = now - hours.front()["D"].doubleValue() - 24 * kHour;
  return static_cast<std::int64_t>(
      std::clamp(std::ceil(age / kWeek), 0.0, static_cast<double>(kUsualWeeks)));
}

bool hasHourWithin(const KnownVolume& volume, ReferenceTime now, double seconds) {
  return std::ranges::any_of(volume.hours.elements(), [&](const ZAN_Value& hour) {
    return now - hour["D"].doubleValue() < seconds;
  });
}

void print(const KnownVolume& volume, std::optional<std::int64_t> wanted, const CommandHome& home,
           const ZAN_StringUtils& strings, std::ostream& out) {
  const ZAN_Value& infos = volume.infos;
  out << printable(infos["volName"].stringView());
  if (volume.isMounted) {
    if (infos["volName"] != infos["volPath"])
      out << " at " << printable(infos["volPath"].stringView());
  } else if (!volume.hours.empty()) {
    const ZAN_Value& last = volume.hours.at(volume.hours.size() - 1);
    out << ", not mounted, last seen " << home.dateText(last["D"].doubleValue());
  } else {
    out << ", not mounted";
  }
  out << '\n';
  if (volume.size() == 0) {
    out << "  does not answer\n";
    return;
  }
  out << "  " << strings.getShortSizeBytes(volume.free()) << " of "
      << strings.getShortSizeBytes(volume.size()) << " free ("
      << volume.free() * 100 / volume.size() << " %)";
  if (volume.isMounted) {
    out << ", " << printable(infos["volKind"].stringView());
    const std::string device =
        infos["isServer"].boolValue() ? infos.string("connection") : infos.string("bsdName");
    if (!device.empty()) out << " on " << printable(device);
    if (infos.contains("writable") && !infos["writable"].boolValue()) out << ", read only";
  }
  out << '\n';
  std::string identity =
      "  told by its size, " + strings.getUnsignedWithSeparators(volume.size()) + " bytes";
  if (const std::string uuid = infos.string("uuid"); !uuid.empty()) {
    identity += ", and its UUID, " + printable(uuid);
  }
  if (volume.isMounted) out << identity << '\n';
  if (hasHourWithin(volume, home.now(), kWeek))
    out << "  free, 7 days   |" << chart(volume, home.now(), kWeek) << "|\n";
  // The first chart shows a week already.
  const std::int64_t weeks = wanted.value_or(usualWeeks(volume, home.now()));
  const double longer = static_cast<double>(weeks) * kWeek;
  if (weeks > 1 && hasHourWithin(volume, home.now(), longer)) {
    std::string label = "  free, " + std::to_string(weeks) + " weeks";
    label.resize(17, ' ');
    out << label << '|' << chart(volume, home.now(), longer) << "|\n";
  }
}

}  // namespace

int volumesCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto weeks = arguments.number("--weeks", 1, kMostWeeks);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  const std::vector<KnownVolume> volumes = knownVolumes(home);
  if (json) {
    ZAN_Value list = ZAN_Value::array();
    for (const KnownVolume& volume : volumes) {
      ZAN_Value one = volume.infos;
      one.setValue("mounted", volume.isMounted);
      one.setValue("freeSpace", volume.hours);
      list.append(std::move(one));
    }
    console.out << jsonText(list);
    return kDone;
  }
  const ZAN_StringUtils strings(home.machine().regionName(), home.machine().timeZoneName());
  for (const KnownVolume& volume : volumes) print(volume, weeks, home, strings, console.out);
  return kDone;
}

}  // namespace corvana
