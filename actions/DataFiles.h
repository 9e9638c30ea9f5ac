#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FileLock.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/DataFolder.h"
#include "actions/FileSaver.h"

namespace corvana {

class Clock;
class LocalDates;
class SystemLog;

/// Reads and writes the two containers that all data files use: one archived array (list) or one
/// archived dictionary or array (object).
///
/// Reading never fails: a missing, empty or damaged file reads as an empty list or as null, and the
/// reason is logged. Writing replaces the file whole. A file that is there and cannot be read is
/// never lost: before it is overwritten it is kept as "<name> (damaged <date>)" beside it, which is
/// logged once. Thread: main.
class DataFiles {
 public:
  struct List {
    ZAN_Value elements = ZAN_Value::array();  ///< always an array
    std::optional<ZAN_FileIdentity>
        identity;          ///< of the file that was read; nothing when there is none
    bool readable = true;  ///< not when there is a file with something in it that cannot be read
  };
  struct Object {
    ZAN_Value value;  ///< null when there is none
    std::optional<ZAN_FileIdentity> identity;
  };

  /// Held while a file that other programs write too is read, changed and written. Taking the same
  /// lock again while it is held is free. When another program keeps it for longer than two seconds
  /// the work goes on without it, and that is logged.
  class Lock {
   public:
    Lock() = default;
    Lock(Lock&& other) noexcept : mFiles(other.mFiles), mName(std::move(other.mName)) {
      other.mFiles = nullptr;
    }
    Lock& operator=(Lock&& other) noexcept;
    ~Lock();

   private:
    friend class DataFiles;
    Lock(DataFiles& files, std::string name) : mFiles(&files), mName(std::move(name)) {}
    DataFiles* mFiles = nullptr;
    std::string mName;
  };

  DataFiles(const DataFolder& folder, LocalDates& dates, Clock& clock, SystemLog& log,
            FileSaver& saver);

  /// The full reader: three attempts with a pause of 0.05 s between them; a first element that is
  /// the text `firstIndexCode` is left out.
  List readListAtPath(const std::string& path, std::optional<std::string_view> firstIndexCode);
  ZAN_Value readListAtPath(const std::string& path);
  ZAN_Value readListFromFile(std::string_view name);  ///< name in the data folder
  Outcome writeListToPath(const ZAN_Value& list, const std::string& path);
  Outcome writeListToFile(const ZAN_Value& list, std::string_view name);

  Object readObject(const std::string& path);
  ZAN_Value readObjectAtPath(const std::string& path);
  ZAN_Value readObjectFromFile(std::string_view name);
  Outcome writeObjectToPath(const ZAN_Value& object, const std::string& path,
                            bool synchronise = true);
  Outcome writeObjectToFile(const ZAN_Value& object, std::string_view name,
                            bool synchronise = true);
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
                          std::span<const std::byte> data, bool synchronise = true);

  /// Takes the lock that goes with a file of the data folder. The tree and its changes share one.
  [[nodiscard]] Lock lock(std::string_view fileName);

  /// A damaged file was put aside: where it was and where it is now. The line in the log is written
  /// anyway.
  std::function<void(const std::string& path, const std::string& kept)> onDamagedFileKept;

  Clock& clock() { return mClock; }
  SystemLog& systemLog() { return mLog; }
  const DataFolder& folder() const { return mFolder; }
  FileSaver& saver() { return mSaver; }
  LocalDates& dates() { return mDates; }

 private:
  struct Held {
    ZAN_FileLock lock;
    int count = 0;
  };
  /// Of the same file, so that one cause is logged once and a file without contents is waited for
  /// once.
  struct Known {
    enum class State { readable, unreadable, empty } state;
    ZAN_FileIdentity identity;
  };
  enum class Content { list, object };

  bool isKnown(const std::string& path, const std::optional<ZAN_FileIdentity>& identity,
               Known::State state) const;
  Result<ZAN_Value> unarchived(const ZAN_FileContents& contents, Content content) const;
  void noteReadable(const std::string& path);
  void noteFailure(const std::string& path, const std::optional<ZAN_FileIdentity>& identity,
                   const Error& error);
  ZAN_Value decoded(const std::string& path, const ZAN_FileContents& contents, Content content);
  bool keepDamagedFile(const std::string& path, Content content);
  Outcome writeContainer(const ZAN_Value& value, const std::string& path, Content content,
                         const ZAN_FileWriter::Options& options);
  void release(const std::string& name);

  const DataFolder& mFolder;
  LocalDates& mDates;
  Clock& mClock;
  SystemLog& mLog;
  FileSaver& mSaver;
  std::map<std::string, Held> mLocks;
  std::map<std::string, Known> mKnown;
};

}  // namespace corvana
