#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionLog.h"
#include "actions/ActionStore.h"
#include "actions/ExecutionCounters.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "core/record/SiblingWatch.h"
#include "core/record/SurveyExecution.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {

/// The record of the scheduler on a simulated machine, as one run of the agent has it.
struct RecordedAgent {
  explicit RecordedAgent(SimulatedPlatform& platform) : p(platform) { preferences.loadPrefs(); }

  ReferenceTime now() const { return p.clock.now(); }
  ZAN_Value lastLogEntry() {
    const ZAN_Value list = log.readLogList();
    return list.empty() ? ZAN_Value() : list.at(list.size() - 1);
  }

  SimulatedPlatform& p;
  ActionStore store{p.clock, p.machine, p.systemLog};
  SchedulerState state{p.clock.now()};
  SurveyExecution survey{p.clock, p.runLoop, "Corvana 9 Scheduler"};
  SiblingWatch watch{p.processes, survey,
                     store.installPaths().installPathForCode(InstallPaths::mainAppBundle),
                     store.installPaths().installPathForCode(InstallPaths::executeBundle)};
  SiblingChannel channel{p.notifications, watch};
  Preferences preferences{store.settings(), p.machine, state.deadlines, p.clock.now()};
  ActionLog log{store};
  ExecutionCounters counters{store};
  ZAN_StringTable texts{{{"ActionNotExecutedNoVolume", "%@ has no volume"}}};
  SchedulerLog schedulerLog{p.clock, log, counters, channel, preferences, state, texts};
  ZAN_StringUtils strings{"C"};
  Messages messages{p.clock,     p.runLoop,    p.machine,     p.userInterface, state.deadlines,
                    preferences, schedulerLog, store.texts(), strings};
};

class RecordTest : public testing::Test {
 protected:
  SimulatedPlatform p;
};

}  // namespace corvana
