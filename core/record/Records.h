#pragma once

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "core/record/Changes.h"
#include "core/record/Diagnostics.h"
#include "core/record/ExceptionGuard.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/record/Siblings.h"
#include "core/record/StorageWatch.h"
#include "platform/Platform.h"

namespace corvana {

/// What every duty of the agent leans on: its surroundings, what is stored, what is known, and the
/// ways to tell of it. It outlives all duties. Thread: main.
struct Records {
  /// Reads nothing yet.
  explicit Records(const Platform& given);
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  /// What is performed in the loop of `platform` throws nothing.
  ExceptionGuard guard;
  GuardedRunLoop runLoop;
  Platform platform;
  Changes changes;
  ActionStore store;
  ZAN_StringTable texts;
  ZAN_StringUtils strings;
  SchedulerState state;
  Preferences preferences;
  SurveyExecution survey;
  SiblingWatch siblingWatch;
  SiblingChannel channel;
  History history;
  SchedulerLog log;
  DebugLog debugLog;
  Messages messages;
  StorageWatch storage;
  ActionTree tree;

  /// Automatic execution, the pause, the context or what runs is another than before: whoever shows
  /// it follows, and the main application is told.
  void executionStatusChanged();
};

}  // namespace corvana
