#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/record/Records.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {

/// The record of the scheduler on a simulated machine, as one run of the agent has it.
struct RecordedAgent {
  explicit RecordedAgent(SimulatedPlatform& platform) : p(platform) {
    records.texts =
        ZAN_StringTable(ZAN_StringTable::Entries{{"ActionNotExecutedNoVolume", "%@ has no volume"},
                                                 {"ActionTargetNotReachable", "%@ has no answer"}});
    preferences.loadPrefs();
  }

  ReferenceTime now() const { return p.clock.now(); }
  ZAN_Value lastLogEntry() {
    const ZAN_Value list = log.readLogList();
    return list.empty() ? ZAN_Value() : list.at(list.size() - 1);
  }

  SimulatedPlatform& p;
  Records records{p.platform()};
  ActionStore& store = records.store;
  SchedulerState& state = records.state;
  SurveyExecution& survey = records.survey;
  SiblingWatch& watch = records.siblingWatch;
  SiblingChannel& channel = records.channel;
  Preferences& preferences = records.preferences;
  ActionLog& log = records.history.log();
  ExecutionCounters& counters = records.history.counters();
  SchedulerLog& schedulerLog = records.log;
  Messages& messages = records.messages;
};

class RecordTest : public testing::Test {
 protected:
  RecordTest() { p.machine.region = "C"; }
  SimulatedPlatform p;
};

}  // namespace corvana
