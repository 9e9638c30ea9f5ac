#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/FileSaver.h"
#include "actions/FolderLocks.h"
#include "actions/Generations.h"
#include "actions/InstalledPlaces.h"
#include "platform/RunLoop.h"

namespace corvana {

class Clock;
class LocalDates;
class SystemLog;

/// Reads and writes the two containers that all data files use: one archived array (list) or one
/// archived dictionary or array (object).
///
/// Reading never fails: a missing, empty or damaged file reads as an empty list or as null, and the
/// reason is logged. Writing replaces the file whole. A file whose contents are damaged is never
/// lost: before it is overwritten it is kept as "<name> (damaged <date>)" beside it, which is
/// logged once. A file that is empty and was not before is damaged, too. One that cannot be read at
/// the moment (no descriptor left, no right, a disk error) says nothing about its contents: nothing
/// is written over it, and it is tried again. Thread: main.
class DataFiles {
 public:
  struct List {
    ZAN_Value elements = ZAN_Value::array();  ///< always an array
    std::optional<ZAN_FileIdentity>
        identity;          ///< of the file that was read; nothing when there is none
    bool readable = true;  ///< not when there is a file with something in it that cannot be read
    bool readNow = true;   ///< not when that may be otherwise in a moment
  };
  struct Object {
    ZAN_Value value;  ///< null when there is none
    std::optional<ZAN_FileIdentity> identity;
    bool readNow = true;  ///< not when there is one that could not be read, but may be in a moment
  };

  /// What is wrong with a file.
  struct Trouble {
    enum class Kind {
      damaged,     ///< what was in it is lost to its readers
      unreadable,  ///< it cannot be read at the moment
      unwritable,  ///< what was to be written into it is in memory alone
    };
    Kind kind = Kind::damaged;
    std::string path;
    std::string reason;
    std::string kept = {};  ///< where what is damaged was put; empty: it is where it was
  };

  using Lock = FolderLocks::Lock;

  /// When a file is on disk.
  enum class Saving {
    now,  ///< when the call returns
    /// Soon, when saving in the background was chosen: the call returns at once, a failure is
    /// logged later, and what was to be written counts as the file's contents until something else
    /// is.
    soon,
  };

  DataFiles(const DataFolder& folder, LocalDates& dates, Clock& clock, SystemLog& log,
            const ZAN_FileWriter& writer);
  ~DataFiles();

  /// From now on Saving::soon means a thread of its own; with a `delay` the loop, that many seconds
  /// later, until when of several versions of a file only the last is written.
  void saveInBackground(RunLoop& loop, double delay = 0);
  /// Writes what is kept; returns when nothing waits to be written any more.
  void finishSaving();

  /// From now on `writeRarely` keeps; the loop lives as long as this object.
  void keepForLater(RunLoop& loop) { mKeeper = &loop; }
  /// For a file of the data folder that the clock alone changes, and whose present contents `write`
  /// writes: it is called within half an hour, together with whatever is kept then, so that the
  /// disk of an idle machine sleeps. Of several for one file the last counts, and none after the
  /// file was written otherwise. At once where nothing keeps, as in a program that soon ends.
  void writeRarely(std::string_view name, std::function<void()> write);
  /// Writes now what is kept: somebody is about to read it.
  void writeKept();

  /// The full reader: three attempts with a pause of 0.05 s between them, one for a file that has
  /// been empty for a while; a first element that is the text `firstIndexCode` is left out.
  List readListAtPath(const std::string& path, std::optional<std::string_view> firstIndexCode);
  ZAN_Value readListAtPath(const std::string& path);
  ZAN_Value readListFromFile(std::string_view name);  ///< name in the data folder
  Outcome writeListToPath(const ZAN_Value& list, const std::string& path,
                          Saving saving = Saving::now);
  /// The list is made by `make` when the file is written, on another thread when that is later.
  Outcome writeMadeListToFile(std::function<ZAN_Value()> make, std::string_view name,
                              Saving saving = Saving::soon);
  /// A text file that mirrors a list: line by line from `line`, which may be asked on another
  /// thread. Unless `isAnew`, only what follows the lines that it ends with is added.
  Outcome showLinesInFile(const std::string& path, std::size_t count,
                          std::function<std::string(std::size_t)> line, bool isAnew);
  /// Adds whole lines to the end of a text file, not synchronised. A failure is told as that of any
  /// other file, until it could be written again.
  Outcome appendLinesToFile(const std::string& path, std::string_view lines);
  /// Calls back on the main thread when nothing of the file waits to be written any more: at once,
  /// or later.
  void whenSaved(const std::string& path, std::function<void()> body);
  Outcome writeListToFile(const ZAN_Value& list, std::string_view name,
                          Saving saving = Saving::now);
  /// Identity of a file as of now; what waits to be written counts. To be compared with that of a
  /// reading or with what this said after a writing.
  std::optional<ZAN_FileIdentity> identity(const std::string& path) const;

  Object readObject(const std::string& path);
  ZAN_Value readObjectAtPath(const std::string& path);
  ZAN_Value readObjectFromFile(std::string_view name);
  Outcome writeObjectToPath(const ZAN_Value& object, const std::string& path);
  Outcome writeObjectToFile(const ZAN_Value& object, std::string_view name,
                            Saving saving = Saving::now);
  /// With a type of its own in place of 'CVda'.
  Outcome writeTypedObjectToPath(const ZAN_Value& object, const std::string& path,
                                 std::string_view type);

  /// The attributes of data files: mode 0666, type, creator 'CVA9', hidden extension.
  static ZAN_FileWriter::Attributes dataFileAttributes(std::string_view type = "CVda");
  /// Replaces what is there by an empty file.
  Outcome createEmptyFileAtPath(const std::string& path,
                                const ZAN_FileWriter::Attributes& attributes);
  /// Replaces the file whole and synchronised. A failure is logged as "Unable saving data in file
  /// %@".
  Outcome writeFileAtPath(const std::string& path, const ZAN_FileWriter::Attributes& attributes,
                          std::span<const std::byte> data, bool synchronise = true,
                          Saving saving = Saving::now);

  /// Takes the lock that goes with a file of the data folder.
  [[nodiscard]] Lock lock(std::string_view fileName) { return mLocks.lock(fileName); }

  /// A damaged file leaves its place, as it does before it is overwritten; where it is kept,
  /// nothing when it cannot be moved.
  std::optional<std::string> putAside(const std::string& path);

  /// Makes an earlier version of a file of the data folder the present one. What it replaces is
  /// kept among the generations, what was damaged of the file lies with them then.
  Outcome bringBack(std::string_view name, const std::string& generation);

  /// Something has gone wrong, each cause once. The line in the log is written anyway.
  std::function<void(const Trouble&)> onTrouble;
  /// What is wrong now, by path: until the file could be read or written again.
  const std::map<std::string, Trouble>& troubles() const { return mTroubles; }

  Generations& generations() { return mGenerations; }
  Clock& clock() { return mClock; }
  SystemLog& systemLog() { return mLog; }
  const DataFolder& folder() const { return mFolder; }
  LocalDates& dates() { return mDates; }

 private:
  /// Of the same file, so that one cause is logged once and a file without contents is waited for
  /// once.
  struct Known {
    enum class State { readable, unreadable, empty } state;
    ZAN_FileIdentity identity;
  };
  enum class Content { list, object };
  /// A file that waits to be written, and its lock, which is kept until then.
  struct Pending {
    std::uint64_t serial = 0;  ///< of the latest writing
    Lock lock;
    std::vector<std::function<void()>> whenSaved = {};
  };
  /// What stands for a file's identity since it was handed over to be written.
  struct Alias {
    std::uint64_t serial = 0;
    std::optional<ZAN_FileIdentity> identity;
  };

  bool isKnown(const std::string& path, const std::optional<ZAN_FileIdentity>& identity,
               Known::State state) const;
  Result<ZAN_Value> unarchived(const ZAN_FileContents& contents, Content content) const;
  List readList(const std::string& path, std::optional<std::string_view> firstIndexCode);
  Object readWholeObject(const std::string& path);
  std::optional<ZAN_FileIdentity> asGivenOut(const std::string& path,
                                             const std::optional<ZAN_FileIdentity>& actual) const;
  void noteReadable(const std::string& path);
  void noteTrouble(const Trouble& trouble);
  std::string witnessOf(const std::string& path) const;
  bool hadContents(const std::string& path) const;
  void noteContents(const std::string& path);
  void keepGeneration(const std::string& path, const ZAN_Value& next);
  void noteFailure(const std::string& path, const std::optional<ZAN_FileIdentity>& identity,
                   const Error& error);
  ZAN_Value decoded(const std::string& path, const ZAN_FileContents& contents, Content content);
  Outcome keepDamagedFile(const std::string& path, Content content);
  std::optional<std::string> keep(const std::string& path);
  Outcome writeContainer(std::function<ZAN_Value()> make, const std::string& path, Content content,
                         const ZAN_FileWriter::Options& options, Saving saving);
  Outcome save(FileSave save, Saving saving);
  void saved(const std::string& path, std::uint64_t serial, const Outcome& outcome);
  void logFailure(const std::string& path, const Outcome& outcome);
  void report(const Outcome& outcome);

  const DataFolder& mFolder;
  LocalDates& mDates;
  Clock& mClock;
  SystemLog& mLog;
  const ZAN_FileWriter& mWriter;
  std::unique_ptr<FileSaver> mSaver;
  std::uint64_t mSerial = 0;
  FolderLocks mLocks;
  std::map<std::string, Known> mKnown;
  std::map<std::string, Alias> mAliases;
  std::map<std::string, Pending> mPending;
  std::map<std::string, Trouble> mTroubles;
  std::set<std::string> mWitnessed;  ///< files known to have had contents
  Generations mGenerations;
  RunLoop* mKeeper = nullptr;
  RunLoop::TimerId mKeepingTimer = 0;
  std::shared_ptr<int> mHere = std::make_shared<int>();  ///< gone with this object
  std::map<std::string, std::function<void()>> mKept;    ///< by path
};

}  // namespace corvana
