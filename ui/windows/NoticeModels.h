#pragma once

#include <string>

#include "ui/UserInterfaceSources.h"

namespace corvana {

/// The window that tells of stray folders among the volumes. Thread: main.
class StrayFoldersModel {
 public:
  explicit StrayFoldersModel(const UserInterfaceSources& sources) : m(sources) {}

  std::string text() const;
  std::string names() const;
  std::string dateText() const;
  /// Empty while nothing is being deleted.
  std::string progressText() const;
  void repairAndContinue() const;
  /// As it is.
  void continueAnyway() const;

 private:
  const UserInterfaceSources& m;
};

/// The window that tells that the start-up disk is nearly full. Thread: main.
class LowSpaceModel {
 public:
  explicit LowSpaceModel(const UserInterfaceSources& sources) : m(sources) {}

  int freePercent() const { return m.freePercent ? m.freePercent() : 0; }
  std::string text() const;

 private:
  const UserInterfaceSources& m;
};

}  // namespace corvana
