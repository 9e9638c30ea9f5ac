#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ProgrammedAction.h"

namespace corvana {

class Clock;
class SystemLog;
class TreeFiles;

/// Owner of the tree of programmed actions: reads it when it is first asked for, merges changes,
/// gives out references and writes it back. Thread: main.
class ActionTree {
 public:
  ActionTree(TreeFiles& files, Clock& clock, SystemLog& log, const ZAN_StringTable& texts);
  ~ActionTree();
  ActionTree(const ActionTree&) = delete;
  ActionTree& operator=(const ActionTree&) = delete;

  /// The root, read from disk with the pending changes applied when there is none. It is the same
  /// as before its release when neither file changed and nothing unsaved was in it. A tree that
  /// cannot be read is an empty root, and is tried again when its file changes. The root itself
  /// stays the same object.
  ProgrammedAction& rootItem();
  bool hasRoot() const { return mRoot != nullptr && !mReleased; }
  /// Whether the root holds what the user programmed. Not while the file is away, empty or damaged:
  /// an action that is not found then is not gone.
  bool isThere();
  /// The title of that action or group; empty when there is none.
  std::string titleOf(std::int64_t reference);
  /// The same for a text that must name it: without one, its number.
  std::string nameOf(std::int64_t reference);
  /// The tree is read again at the next use; no node may be used any more.
  void releaseRootItem();

  /// Of nodes with the same reference the first in depth-first order keeps it, the later ones get
  /// new ones; then the tree is saved and that is logged. Nothing without a root.
  void repairReferencesIfDuplicates();

  /// Applies the pending changes to the root, which is read when there is none. Changes of actions
  /// that are gone are dropped. With `mergeIntoFile`, and when there are changes, tree and changes
  /// are read again under their lock, the merged tree is written, the list emptied and the root
  /// released. Refused, with the changes kept and a line in the log, when the tree's file cannot be
  /// read or written.
  Outcome updateActionsWithChanges(bool mergeIntoFile);
  /// Writes the tree as it is in memory. Refused when its file is there but could not be read.
  Outcome saveActionsTree();

  /// An edit of the stored tree that loses nothing of what others do: under the lock, reads the
  /// tree, merges the pending changes, lets `edit` change the root, and writes. Nothing is written
  /// when `edit` fails. The root is released afterwards.
  Outcome editStoredTree(const std::function<Outcome(ProgrammedAction& root)>& edit);

  /// Same as the root's, at the cost of a comparison while the tree is being filled.
  std::int64_t getNextFreeReference();
  /// Sets the value in the node's record and appends it to the stored list of changes.
  void addInChangesList(ProgrammedAction& node, ZAN_Value value, std::string_view forKey);
  /// Until the matching `storeHeldChanges` what is added to the list of changes is known here only,
  /// and then stored at once. May be nested.
  void holdChanges() { ++mHolding; }
  void storeHeldChanges();

  Clock& clock() { return mClock; }
  SystemLog& systemLog() { return mLog; }
  const ZAN_StringTable& texts() const { return mTexts; }

 private:
  friend class ProgrammedAction;

  /// What the next free reference is made from: over all nodes with a record at depth d below the
  /// root, the largest of reference + 1 + d, and the largest d.
  struct Highest {
    std::int64_t reference = 0;
    std::int64_t depth = 0;
  };

  void load();
  bool isCurrent() const;
  void ensureCurrentRoot();
  void applyChanges(const ZAN_Value& changes);
  void appendChanges(const ZAN_Value& changes);
  Outcome writeMerged(const ZAN_Value& changes);
  Highest highest(const ProgrammedAction& node, std::int64_t depth) const;
  // What nodes tell.
  void edited() { mUnsaved = true; }
  void added(const ProgrammedAction& node);
  void referencesChanged();

  TreeFiles& mFiles;
  Clock& mClock;
  SystemLog& mLog;
  const ZAN_StringTable& mTexts;
  std::size_t mNodes = 0;
  std::unique_ptr<ProgrammedAction> mRoot;
  bool mReleased = false;
  bool mUnsaved = false;  ///< memory holds what the files do not
  bool mReadable = true;  ///< the tree's file could be read, or is not there
  std::optional<Highest> mHighest;
  std::optional<ZAN_FileIdentity> mActionsIdentity;
  std::optional<ZAN_FileIdentity> mChangesIdentity;
  int mHolding = 0;
  ZAN_Value mHeldChanges = ZAN_Value::array();
  std::string mLoggedRefusal;  ///< so that one reason is logged once
};

}  // namespace corvana
