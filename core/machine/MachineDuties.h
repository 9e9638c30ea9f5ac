#pragma once

#include "core/machine/PowerDuties.h"
#include "core/machine/SettingsBackup.h"
#include "core/machine/StartupDisk.h"
#include "core/machine/SystemInformation.h"
#include "core/machine/VolumeMounter.h"
#include "core/machine/VolumeWatch.h"
#include "core/machine/VolumesFolderSurvey.h"
#include "core/work/Work.h"
#include "volumes/VolumesHistory.h"
#include "volumes/ZAN_MountVolume.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

/// What the agent does about the machine that it runs on: its volumes, its sleep and its end, and
/// copies of the settings. Thread: main.
struct MachineDuties {
  MachineDuties(Records& records, Work& work)
      : tools(records.platform.processes, records.platform.machine, records.platform.systemLog),
        mounted(records.platform.volumes),
        connected(records.platform.runLoop, tools),
        freeSpaceHistory(records.store, mounted),
        mountedHistory(records.store, mounted),
        volumeWatch(records, work.evaluation,
                    {mounted, connected, freeSpaceHistory, mountedHistory}),
        aliases(records, tools.toolsFolder()),
        mounter(records, volumeWatch, {tools, connected, aliases}),
        recoveryCopy(records, tools),
        startupDisk(records),
        systemInformation(records, tools),
        freeSpace(records, freeSpaceHistory),
        folderSurvey(records, work.supervisor),
        settingsBackup(records, work.volumes),
        longDisabledWarning(records, work.evaluation),
        wakeUp(records, work.evaluation),
        shutdownHelper(records) {}

  ZAN_MountVolume tools;
  ZAN_MountedVolumes mounted;
  ZAN_ConnectedVolumes connected;
  FreeSpaceHistory freeSpaceHistory;
  MountedVolumesHistory mountedHistory;
  VolumeWatch volumeWatch;
  AliasMounter aliases;
  VolumeMounter mounter;
  RecoveryCopy recoveryCopy;
  StartupDisk startupDisk;
  SystemInformation systemInformation;
  FreeSpaceSurvey freeSpace;
  VolumesFolderSurvey folderSurvey;
  SettingsBackup settingsBackup;
  LongDisabledWarning longDisabledWarning;
  WakeUp wakeUp;
  ShutdownHelper shutdownHelper;
};

}  // namespace corvana
