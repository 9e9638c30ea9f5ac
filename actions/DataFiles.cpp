#include "actions/DataFiles.h"

#include <unistd.h>

#include <limits>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/LocalDates.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr int kAttempts = 3;
constexpr double kPauseBetweenAttempts = 0.05;
/// Seconds; nobody takes longer from emptying a file to writing it.
constexpr double kRewriting = 2.0;

bool isOld(const ZAN_FileIdentity& file, ReferenceTime now) {
  return now - (static_cast<double>(file.modified) / 1e9 - kReferenceEpochInUnixTime) > kRewriting;
}
constexpr double kKeptInMemory = 1800.0;

Error emptied(const std::string& path) {
  return {ErrorKind::damaged, path + ": empty, though it was not before"};
}

std::string_view exceptionName(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::limit:
      return "LimitExceeded";
    case ErrorKind::damaged:
      return "ArchiveDamaged";
    default:
      return "FileUnreadable";
  }
}

/// What stands for the identity of a file while it waits to be written and for as long as it stays
/// as it was written then.
ZAN_FileIdentity standIn(std::uint64_t serial) {
  return {.device = std::numeric_limits<std::uint64_t>::max(), .inode = serial};
}

}  // namespace

DataFiles::DataFiles(const DataFolder& folder, LocalDates& dates, Clock& clock, SystemLog& log,
                     const ZAN_FileWriter& writer)
    : mFolder(folder),
      mDates(dates),
      mClock(clock),
      mLog(log),
      mWriter(writer),
      mLocks(folder, clock, log),
      mGenerations(folder, clock, writer) {}

/// Those who keep something may be gone.
DataFiles::~DataFiles() {
  mKept.clear();
  finishSaving();
}

void DataFiles::saveInBackground(RunLoop& loop, double delay) {
  finishSaving();
  mSaver = std::make_unique<FileSaver>(mWriter, loop, delay);
}

void DataFiles::finishSaving() {
  writeKept();
  if (mSaver) mSaver->finish();
}

void DataFiles::writeRarely(std::string_view name, std::function<void()> write) {
  if (mKeeper == nullptr) {
    write();
    return;
  }
  mKept.insert_or_assign(mFolder.pathOf(name), std::move(write));
  if (mKeepingTimer != 0) return;
  mKeepingTimer = mKeeper->performAfter(kKeptInMemory, [this, here = std::weak_ptr(mHere)] {
    if (here.expired()) return;
    mKeepingTimer = 0;
    writeKept();
  });
}

void DataFiles::writeKept() {
  const auto kept = std::exchange(mKept, {});
  for (const auto& [path, write] : kept) write();
}

std::optional<ZAN_FileIdentity> DataFiles::identity(const std::string& path) const {
  const auto pending = mPending.find(path);
  if (pending != mPending.end()) return standIn(pending->second.serial);
  return asGivenOut(path, ZAN_FilesUtils::identity(path));
}

std::optional<ZAN_FileIdentity> DataFiles::asGivenOut(
    const std::string& path, const std::optional<ZAN_FileIdentity>& actual) const {
  const auto alias = mAliases.find(path);
  const bool isAlias = alias != mAliases.end() && alias->second.identity == actual;
  return isAlias ? standIn(alias->second.serial) : actual;
}

DataFiles::List DataFiles::readListAtPath(const std::string& path,
                                          std::optional<std::string_view> firstIndexCode) {
  if (mPending.contains(path)) mSaver->finish(path);
  List list = readList(path, firstIndexCode);
  list.identity = asGivenOut(path, list.identity);
  return list;
}

DataFiles::Object DataFiles::readObject(const std::string& path) {
  if (mPending.contains(path)) mSaver->finish(path);
  Object object = readWholeObject(path);
  object.identity = asGivenOut(path, object.identity);
  return object;
}

DataFiles::List DataFiles::readList(const std::string& path,
                                    std::optional<std::string_view> firstIndexCode) {
  List list;
  list.identity = ZAN_FilesUtils::identity(path);
  if (!list.identity || isKnown(path, list.identity, Known::State::empty)) return list;

  // The other programs of the product may be rewriting the file in place at this moment; one that
  // is empty for longer is simply empty.
  const bool isSettled = list.identity->size == 0 && isOld(*list.identity, mClock.now());
  const int attempts =
      isSettled || isKnown(path, list.identity, Known::State::unreadable) ? 1 : kAttempts;
  std::optional<ZAN_FileContents> contents;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    if (attempt > 1) mClock.sleep(kPauseBetweenAttempts);
    auto read = ZAN_FilesUtils::readFile(path);
    if (read) {
      contents = std::move(*read);
      list.identity = contents->identity;
      if (!contents->bytes.empty()) break;
    } else if (attempt == attempts && !contents && read.error().kind != ErrorKind::absent) {
      noteFailure(path, list.identity, read.error());
      list.readNow = read.error().kind != ErrorKind::unreadable;
    }
  }
  if (!contents) {
    list.readable = !list.identity || !ZAN_FilesUtils::exists(path);
    return list;
  }
  if (contents->bytes.empty()) {
    if (hadContents(path)) {
      noteFailure(path, contents->identity, emptied(path));
      list.readable = false;
      return list;
    }
    mKnown.insert_or_assign(path, Known{Known::State::empty, contents->identity});
    return list;
  }
  ZAN_Value elements = decoded(path, *contents, Content::list);
  if (!elements.isArray()) {
    list.readable = isKnown(path, list.identity, Known::State::readable);
    return list;
  }
  if (firstIndexCode && elements.at(0).isString() &&
      elements.at(0).stringView() == *firstIndexCode) {
    elements.removeAt(0);
  }
  list.elements = std::move(elements);
  return list;
}

ZAN_Value DataFiles::readListAtPath(const std::string& path) {
  return readListAtPath(path, {}).elements;
}

ZAN_Value DataFiles::readListFromFile(std::string_view name) {
  return readListAtPath(mFolder.dataFolderPathWithFileName(name));
}

Outcome DataFiles::writeListToPath(const ZAN_Value& list, const std::string& path, Saving saving) {
  return writeContainer([list] { return list; }, path, Content::list,
                        {.attributes = dataFileAttributes()}, saving);
}

Outcome DataFiles::writeMadeListToFile(std::function<ZAN_Value()> make, std::string_view name,
                                       Saving saving) {
  return writeContainer(std::move(make), mFolder.dataFolderPathWithFileName(name), Content::list,
                        {.attributes = dataFileAttributes()}, saving);
}

Outcome DataFiles::writeListToFile(const ZAN_Value& list, std::string_view name, Saving saving) {
  return writeListToPath(list, mFolder.dataFolderPathWithFileName(name), saving);
}

DataFiles::Object DataFiles::readWholeObject(const std::string& path) {
  Object object;
  auto contents = ZAN_FilesUtils::readFile(path);
  for (int attempt = 1;
       !contents && contents.error().kind == ErrorKind::unreadable && attempt < kAttempts;
       ++attempt) {
    mClock.sleep(kPauseBetweenAttempts);
    contents = ZAN_FilesUtils::readFile(path);
  }
  if (!contents) {
    object.identity = ZAN_FilesUtils::identity(path);
    if (contents.error().kind != ErrorKind::absent) {
      noteFailure(path, object.identity, contents.error());
    }
    object.readNow = contents.error().kind != ErrorKind::unreadable;
    return object;
  }
  object.identity = contents->identity;
  if (!contents->bytes.empty()) {
    object.value = decoded(path, *contents, Content::object);
  } else if (hadContents(path)) {
    noteFailure(path, object.identity, emptied(path));
  }
  return object;
}

ZAN_Value DataFiles::readObjectAtPath(const std::string& path) { return readObject(path).value; }

ZAN_Value DataFiles::readObjectFromFile(std::string_view name) {
  return readObjectAtPath(mFolder.dataFolderPathWithFileName(name));
}

Outcome DataFiles::writeObjectToPath(const ZAN_Value& object, const std::string& path) {
  return writeContainer([object] { return object; }, path, Content::object,
                        {.attributes = dataFileAttributes()}, Saving::now);
}

Outcome DataFiles::writeTypedObjectToPath(const ZAN_Value& object, const std::string& path,
                                          std::string_view type) {
  return writeContainer([object] { return object; }, path, Content::object,
                        {.attributes = dataFileAttributes(type)}, Saving::now);
}

Outcome DataFiles::writeObjectToFile(const ZAN_Value& object, std::string_view name,
                                     Saving saving) {
  return writeContainer([object] { return object; }, mFolder.dataFolderPathWithFileName(name),
                        Content::object, {.attributes = dataFileAttributes()}, saving);
}

ZAN_FileWriter::Attributes DataFiles::dataFileAttributes(std::string_view type) {
  return {
      .mode = 0666,
      .finderInfo = ZAN_FinderInfo{
          .type = std::string(type), .creator = "CVA9", .flags = ZAN_FinderInfo::kHiddenExtension}};
}

Outcome DataFiles::createEmptyFileAtPath(const std::string& path,
                                         const ZAN_FileWriter::Attributes& attributes) {
  const Outcome outcome = writeFileAtPath(path, attributes, {});
  if (outcome && mFolder.pathOf(ZAN_FilesUtils::lastPathComponent(path)) == path) {
    mWitnessed.erase(path);
    (void)ZAN_FilesUtils::removeFile(witnessOf(path));
  }
  if (const auto identity = ZAN_FilesUtils::identity(path); outcome && identity) {
    mKnown.insert_or_assign(path, Known{Known::State::empty, *identity});
  }
  return outcome;
}

Outcome DataFiles::writeFileAtPath(const std::string& path,
                                   const ZAN_FileWriter::Attributes& attributes,
                                   std::span<const std::byte> data, bool synchronise,
                                   Saving saving) {
  return save({.path = path,
               .bytes = {data.begin(), data.end()},
               .options = {.attributes = attributes, .synchronise = synchronise}},
              saving);
}

Outcome DataFiles::showLinesInFile(const std::string& path, std::size_t count,
                                   std::function<std::string(std::size_t)> line, bool isAnew) {
  return save(
      {.path = path,
       .bytes = {},
       .options = {},
       .make = {},
       .lines =
           LineFile::Lines{.count = count,
                           .line = std::move(line),
                           .isAnew = isAnew,
                           .lockPath = mLocks.pathFor(ZAN_FilesUtils::lastPathComponent(path)),
                           .pause = [&clock = mClock](double seconds) { clock.sleep(seconds); }}},
      Saving::soon);
}

Outcome DataFiles::appendLinesToFile(const std::string& path, std::string_view lines) {
  Outcome outcome = LineFile::append(path, lines);
  if (!outcome)
    logFailure(path, outcome);
  else
    mTroubles.erase(path);
  return outcome;
}

void DataFiles::whenSaved(const std::string& path, std::function<void()> body) {
  const auto pending = mPending.find(path);
  if (pending == mPending.end()) {
    body();
  } else {
    pending->second.whenSaved.push_back(std::move(body));
  }
}

Outcome DataFiles::writeContainer(std::function<ZAN_Value()> make, const std::string& path,
                                  Content content, const ZAN_FileWriter::Options& options,
                                  Saving saving) {
  if (!mPending.contains(path)) {
    if (Outcome kept = keepDamagedFile(path, content); !kept) {
      logFailure(path, kept);
      return kept;
    }
  }
  const bool hasGenerations = mFolder.pathOf(ZAN_FilesUtils::lastPathComponent(path)) == path &&
                              Generations::areKeptOf(ZAN_FilesUtils::lastPathComponent(path));
  if (hasGenerations) keepGeneration(path, make());
  // Handing a value over costs little, encoding a long list much.
  Outcome outcome = save(
      {.path = path,
       .bytes = {},
       .options = options,
       .make = [make =
                    std::move(make)] { return ZAN_Archiver::archivedDataWithRootObject(make()); }},
      saving);
  if (outcome && !mPending.contains(path)) noteReadable(path);
  return outcome;
}

/// What a save that changes more than dates and counters replaces, and what it brings, is kept.
void DataFiles::keepGeneration(const std::string& path, const ZAN_Value& next) {
  const std::string name(ZAN_FilesUtils::lastPathComponent(path));
  const std::uint64_t print = Generations::fingerprint(next);
  if (mGenerations.newest(name) == print) return;
  if (!mPending.contains(path)) {
    const auto before = ZAN_FilesUtils::readFile(path);
    if (before && !before->bytes.empty()) {
      const auto value =
          ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(before->bytes)));
      if (value) {
        const std::uint64_t stored = Generations::fingerprint(*value);
        if (stored != mGenerations.newest(name))
          report(mGenerations.keep(name, before->bytes, stored));
        if (stored == print) return;
      }
    }
  }
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(next);
  report(
      mGenerations.keep(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, print));
}

void DataFiles::report(const Outcome& outcome) {
  if (!outcome) mLog.write(outcome.error().text);
}

Outcome DataFiles::save(FileSave save, Saving saving) {
  const std::string path = save.path;
  mKept.erase(path);
  if (saving == Saving::now || !mSaver) {
    Outcome outcome = mPending.contains(path) ? mSaver->saveNow(save) : save.writeBy(mWriter);
    mAliases.erase(path);
    if (!outcome)
      logFailure(path, outcome);
    else
      mTroubles.erase(path);
    return outcome;
  }
  const std::uint64_t serial = ++mSerial;
  const auto [pending, isNew] = mPending.try_emplace(path);
  pending->second.serial = serial;
  // Nobody else may read, change and write the file while it waits.
  const std::string_view name = ZAN_FilesUtils::lastPathComponent(path);
  if (isNew && mLocks.isTaken(name)) pending->second.lock = lock(name);
  mSaver->save(std::move(save),
               [this, path, serial](const Outcome& outcome) { saved(path, serial, outcome); });
  return {};
}

void DataFiles::saved(const std::string& path, std::uint64_t serial, const Outcome& outcome) {
  if (!outcome)
    logFailure(path, outcome);
  else
    mTroubles.erase(path);
  const auto pending = mPending.find(path);
  if (pending == mPending.end() || pending->second.serial != serial) return;
  if (outcome) noteReadable(path);
  mAliases.insert_or_assign(path, Alias{serial, ZAN_FilesUtils::identity(path)});
  const auto whenSaved = std::move(pending->second.whenSaved);
  mPending.erase(pending);
  for (const auto& body : whenSaved) body();
}

void DataFiles::logFailure(const std::string& path, const Outcome& outcome) {
  mLog.write("Unable saving data in file " + path);
  mLog.write(outcome.error().text);
  noteTrouble({Trouble::Kind::unwritable, path, outcome.error().text});
}

void DataFiles::noteTrouble(const Trouble& trouble) {
  const auto known = mTroubles.find(trouble.path);
  if (known != mTroubles.end() && known->second.kind == trouble.kind &&
      known->second.kept == trouble.kept)
    return;
  mTroubles.insert_or_assign(trouble.path, trouble);
  if (onTrouble) onTrouble(trouble);
}

std::string DataFiles::witnessOf(const std::string& path) const {
  return ZAN_FilesUtils::joinedPath(
      ZAN_FilesUtils::joinedPath(mFolder.hiddenFolderPath(), "Contents"),
      ZAN_FilesUtils::lastPathComponent(path));
}

bool DataFiles::hadContents(const std::string& path) const {
  return mFolder.pathOf(ZAN_FilesUtils::lastPathComponent(path)) == path &&
         ZAN_FilesUtils::exists(witnessOf(path));
}

/// New homes have empty files, so that a file which lost its contents is told by a witness alone.
void DataFiles::noteContents(const std::string& path) {
  if (mFolder.pathOf(ZAN_FilesUtils::lastPathComponent(path)) != path ||
      !mWitnessed.insert(path).second)
    return;
  const std::string witness = witnessOf(path);
  if (ZAN_FilesUtils::exists(witness)) return;
  (void)ZAN_FilesUtils::createFolder(std::string(ZAN_FilesUtils::parentPath(witness)), 0700);
  (void)ZAN_FilesUtils::appendToFile(witness, {}, false);
}

Outcome DataFiles::bringBack(std::string_view name, const std::string& generation) {
  const Lock held = lock(name);
  const auto value = [](const ZAN_FileContents& contents) {
    return ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(contents.bytes)));
  };
  const auto contents = ZAN_FilesUtils::readFile(generation);
  if (!contents) return contents.error();
  const auto wanted = value(*contents);
  if (!wanted || !(wanted->isArray() || wanted->isDictionary()))
    return Error{ErrorKind::damaged, generation + ": it is damaged itself; take another version"};

  const std::string path = mFolder.dataFolderPathWithFileName(name);
  const auto present = ZAN_FilesUtils::readFile(path);
  if (!present && present.error().kind != ErrorKind::absent) return present.error();
  if (present && !present->bytes.empty()) {
    const auto replaced = value(*present);
    Outcome kept;
    if (replaced)
      kept = mGenerations.keep(name, present->bytes, Generations::fingerprint(*replaced));
    else if (!keep(path))
      kept = Error{ErrorKind::unwritable, path + ": cannot be put aside"};
    if (!kept) return kept;
  }
  const Outcome written =
      writeFileAtPath(path, dataFileAttributes(), std::as_bytes(std::span(contents->bytes)));
  if (!written) return written;
  mGenerations.storeDamaged(name);
  mTroubles.erase(path);
  return {};
}

bool DataFiles::isKnown(const std::string& path, const std::optional<ZAN_FileIdentity>& identity,
                        Known::State state) const {
  const auto known = mKnown.find(path);
  return identity && known != mKnown.end() && known->second.state == state &&
         known->second.identity == *identity;
}

Result<ZAN_Value> DataFiles::unarchived(const ZAN_FileContents& contents, Content content) const {
  auto value = ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(contents.bytes)));
  if (!value) return value;
  const bool fits = value->isArray() || (content == Content::object && value->isDictionary());
  if (fits || value->isNull()) return value;
  return Error{ErrorKind::damaged, content == Content::list ? "not a list" : "not an object"};
}

void DataFiles::noteReadable(const std::string& path) {
  if (const auto identity = ZAN_FilesUtils::identity(path)) {
    mKnown.insert_or_assign(path, Known{Known::State::readable, *identity});
    if (identity->size > 0) noteContents(path);
  }
}

void DataFiles::noteFailure(const std::string& path,
                            const std::optional<ZAN_FileIdentity>& identity, const Error& error) {
  const bool isDamaged = error.kind != ErrorKind::unreadable;
  const auto known = mTroubles.find(path);
  if (isDamaged ? isKnown(path, identity, Known::State::unreadable)
                : known != mTroubles.end() && known->second.kind == Trouble::Kind::unreadable)
    return;
  mLog.write("Exception reading file " + path + ": " + std::string(exceptionName(error.kind)) +
             ": " + error.text);
  noteTrouble({isDamaged ? Trouble::Kind::damaged : Trouble::Kind::unreadable, path, error.text});
  if (isDamaged && identity)
    mKnown.insert_or_assign(path, Known{Known::State::unreadable, *identity});
}

ZAN_Value DataFiles::decoded(const std::string& path, const ZAN_FileContents& contents,
                             Content content) {
  auto value = unarchived(contents, content);
  if (!value) {
    noteFailure(path, contents.identity, value.error());
    return {};
  }
  mKnown.insert_or_assign(path, Known{Known::State::readable, contents.identity});
  mTroubles.erase(path);
  noteContents(path);
  return std::move(*value);
}

Outcome DataFiles::keepDamagedFile(const std::string& path, Content content) {
  const auto identity = ZAN_FilesUtils::identity(path);
  if (!identity || isKnown(path, identity, Known::State::readable)) return {};
  if (!isKnown(path, identity, Known::State::unreadable)) {
    const auto contents = ZAN_FilesUtils::readFile(path);
    if (!contents) {
      if (contents.error().kind == ErrorKind::absent) return {};
      if (contents.error().kind == ErrorKind::unreadable)
        return Error{ErrorKind::unreadable,
                     contents.error().text + "; nothing is written over it until it can be read"};
    } else if (contents->bytes.empty() ? !hadContents(path)
                                       : static_cast<bool>(unarchived(*contents, content))) {
      return {};
    }
  }
  if (keep(path)) return {};
  return Error{ErrorKind::unwritable, path + ": what is there cannot be read nor put aside"};
}

std::optional<std::string> DataFiles::keep(const std::string& path) {
  const std::string base =
      path + " (damaged " + mDates.calendar().format(mClock.now(), "%Y-%m-%d %H.%M.%S") + ")";
  std::string kept = base;
  for (int number = 2; ZAN_FilesUtils::exists(kept); ++number) {
    kept = base + " " + std::to_string(number);
  }
  // A second name for the same file costs no space, so it is there on a full disk too.
  if (::link(path.c_str(), kept.c_str()) != 0 && !ZAN_FilesUtils::renameFile(path, kept)) return {};
  mLog.write("Damaged file " + path + " kept as " + kept);
  noteTrouble({Trouble::Kind::damaged, path, "damaged", kept});
  return kept;
}

std::optional<std::string> DataFiles::putAside(const std::string& path) {
  auto kept = keep(path);
  if (kept) (void)ZAN_FilesUtils::removeFile(path);
  return kept;
}

}  // namespace corvana
