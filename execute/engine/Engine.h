#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/engine/ExecuteControl.h"
#include "execute/engine/FolderWatch.h"
#include "execute/engine/Restoration.h"
#include "execute/engine/VersionTree.h"

namespace corvana {

class ActionStore;
class ActionTree;
class Machine;
class Volumes;

/// What an engine is to work for: an action, or copies whose action is not known.
struct EngineOrder {
  ZAN_Value settings;          ///< of the action; null without one
  std::string from = {};       ///< a place of copies instead of the action's
  std::int64_t reference = 0;  ///< with `from`: whose of several actions' copies; 0: the last one's
  std::string engine = {};     ///< by name, of `from`; empty: the one whose place it looks like
  std::string passwordFile = {};  ///< opens `from`; empty: what is kept for it
};

/// What an engine works with.
struct EngineHost {
  ActionStore& store;
  ActionTree& tree;
  ExecuteControl& control;
  Volumes& volumes;
  const Machine& machine;
  FolderWatch& watch;
  /// Called after each piece of news.
  std::function<void(const ExecuteProgress&)> tell = {};
  /// Programs that lie elsewhere than in /usr/bin, by their names.
  std::map<std::string, std::string, std::less<>> programs = {};

  std::string program(std::string_view name) const;
};

/// What a run would do to an item.
struct PlannedItem {
  enum class Kind { copied, replaced, changed, deleted };  ///< changed: in its attributes alone
  Kind kind;
  std::string path;  ///< of the source; of what would be deleted, in the copy
  std::uint64_t size = 0;
};

/// A state of an action's sources that was kept.
struct KeptVersion {
  struct Copy {
    std::string name;    ///< that its items begin with
    std::string source;  ///< its path then
    bool isFolder = true;
  };
  std::string id;  ///< as the engine names it
  ReferenceTime date = 0;
  std::string title = {};
  std::optional<std::uint64_t> files = {};  ///< nothing: not known
  std::optional<std::uint64_t> bytes = {};
  std::vector<Copy> copies = {};
};

struct KeptVersions {
  std::vector<KeptVersion> versions;  ///< oldest first
  std::size_t withoutList = 0;        ///< that only a person can make sense of
  bool areCopies = false;             ///< the newest one is ordinary folders
};

/// Which part of the copies is to be read and compared.
struct VerifiedShare {
  /// Of so many parts that part.
  std::uint32_t parts = 1;
  std::uint32_t part = 0;
  std::uint64_t files = UINT64_MAX;  ///< so many at most
  std::uint64_t bytes = UINT64_MAX;
};

struct VerifiedCounts {
  std::uint64_t files = 0;  ///< read and compared
  std::uint64_t bytes = 0;
  std::uint64_t unknown = 0;  ///< changed at the source, and never compared before
  std::uint64_t mismatches = 0;
  std::string_view unit = "file";  ///< what `files` counts: "file", or the "pack" that holds many
};

/// Something of a version and where it lies, or is to lie, among the user's files.
struct VersionTarget {
  std::string name;  ///< in the version
  HeldFolder folder;
  std::string target;  ///< below the folder; "." for that one itself

  /// Where what has that name, this one's or below it, lies below the folder.
  std::string placeOf(const std::string& other) const;
  /// `refused` when it lies at or below what holds copies: what a restore brings, and what it puts
  /// aside, would become a part of them.
  Outcome checkOutside(const HeldFolder& holder, const std::string& nameInIt = {}) const;
};

/// How something that takes its time goes on, and whether it is to.
struct TaskHooks {
  std::function<void(std::uint64_t files, std::uint64_t bytes)> inAll;  ///< once it is known
  std::function<bool(const std::string& path, std::uint64_t files, std::uint64_t bytes)> goesOn;
  std::function<void(std::string text)> failed;
  /// Tells of what is done, or would be; of what stood in the way by the name that it has now.
  std::function<void(const std::string& path, bool isInTheWay)> done;
};

/// Keeps an action's copies and their versions in some way. One of these is made for each
/// execution. Blocks; thread: one.
///
/// Whatever lies on a volume is held while it is used and told to the host's watch; a stop is
/// obeyed at any time. Errors say "path: reason"; `unavailable`: the place cannot be reached now,
/// and may be later.
class Engine {
 public:
  virtual ~Engine() = default;

  /// Where the copies are, in the user's words and without passwords.
  virtual std::string place() const = 0;

  /// Makes sure of the sources and of the place and takes hold of them, before a run or a plan.
  /// Writes nothing.
  virtual Outcome prepare() = 0;
  /// After `prepare`: the paths of what is copied.
  virtual std::vector<std::string> sources() const = 0;
  /// Changes nothing and tells what a run would do.
  virtual ExecuteEnd plan(const std::function<void(const PlannedItem&)>& planned) = 0;
  virtual ExecuteEnd run() = 0;
  /// Removes the versions that need not be kept any more.
  virtual Outcome forget() = 0;

  /// Those of the action; to be called before what follows but `newest`.
  virtual Result<KeptVersions> versions() = 0;
  /// The newest one, for `verify`; right after a run the one that it has made.
  virtual Result<KeptVersion> newest() = 0;
  /// What lay under one name in each of them, Kind::none where nothing did.
  virtual Result<std::vector<VersionItem>> statesOf(const std::string& name) = 0;
  /// What a version has, as long as the engine is there.
  virtual Result<std::unique_ptr<VersionTree>> list(const KeptVersion& version) = 0;
  virtual Outcome restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                          const Restoration::Options& options, const TaskHooks& hooks,
                          Restoration::Counts& restored) = 0;
  /// Reads copies of the newest version. `sources`: where what was copied lies now, as far as it is
  /// there. What is damaged is told and counted, and is no error.
  virtual Outcome verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                         const TaskHooks& hooks, VerifiedCounts& verified) = 0;
  /// How large the place is and whether it can be used, in its own words. Changes nothing.
  virtual Result<std::string> test() = 0;
};

/// A kind of engine. Each has a folder of its own below execute/ that defines a function of the
/// folder's name and "Engine" which tells of it; the build finds them.
struct EngineKind {
  std::string_view name;  ///< as a record names it
  std::unique_ptr<Engine> (*make)(EngineOrder order, EngineHost host);
  /// Whether a place that was given without an action is one of its own.
  bool (*isPlace)(const std::string& from);
};

}  // namespace corvana
