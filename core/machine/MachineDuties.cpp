#include "core/machine/MachineDuties.h"

#include "core/work/Work.h"

namespace corvana {

MachineDuties::MachineDuties(Records& records, Work& work)
    : tools(records.platform.processes, records.platform.machine, records.platform.systemLog),
      mounted(records.platform.volumes),
      connected(records.platform.runLoop, tools),
      freeSpaceHistory(records.store, mounted),
      mountedHistory(records.store, mounted),
      volumeWatch(records, work.evaluation, {mounted, connected, freeSpaceHistory, mountedHistory}),
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

}  // namespace corvana
