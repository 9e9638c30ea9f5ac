#pragma once

#include "core/record/Records.h"
#include "core/work/ActionQueue.h"
#include "core/work/AgeAlarm.h"
#include "core/work/Announce.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/ExecutionConditions.h"
#include "core/work/Interruptions.h"
#include "core/work/TriggerEvaluation.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

/// The duties that decide what is executed, and execute it. Thread: main.
struct Work {
  explicit Work(Records& records)
      : volumes(records.platform.volumes),
        automatic(records),
        queue(records, volumes, automatic),
        evaluation(records, volumes, queue),
        announce(records, queue),
        supervisor(records, queue, evaluation, announce),
        interruptions(records, queue, supervisor),
        contexts(records, queue),
        ageAlarm(records, queue) {}

  VolumeIdentity volumes;
  AutomaticExecution automatic;
  ActionQueue queue;
  TriggerEvaluation evaluation;
  Announce announce;
  ExecuteSupervisor supervisor;
  Interruptions interruptions;
  Contexts contexts;
  AgeAlarm ageAlarm;
};

}  // namespace corvana
