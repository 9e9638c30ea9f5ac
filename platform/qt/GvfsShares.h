#pragma once

#include "platform/Volumes.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// The shares of servers that the desktop has mounted and shows as folders, as GVfs tells of them
/// on the session bus. It is never started by this: where it does not run there are none. Thread:
/// main, except where said.
class GvfsShares {
 public:
  using Changed = std::function<void(std::vector<Mount> shares)>;

  /// `changed` is called from the loop with all of them when they may be others than before;
  /// nothing is asked otherwise. The connection outlives this object.
  GvfsShares(BusConnection& connection, Changed changed);
  GvfsShares(const GvfsShares&) = delete;
  GvfsShares& operator=(const GvfsShares&) = delete;
  ~GvfsShares();

  /// Those that are there now, for who looks once: asks over a connection of its own and waits two
  /// seconds at most. Thread: any where Qt's application object is there, else main.
  static std::vector<Mount> now();
  /// All volumes of the machine, those shares among them, for who looks once; waits as `now` does.
  /// `patience`: how many seconds one of them may take to answer when it is asked. `areAllWanted`:
  /// they are all asked at once, and have that time together.
  static std::unique_ptr<Volumes> volumesNow(const Machine& machine, double patience,
                                             bool areAllWanted = false);

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
