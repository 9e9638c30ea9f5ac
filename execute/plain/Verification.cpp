#include "execute/plain/Verification.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FileContents.h"

namespace corvana {

namespace {

constexpr std::size_t kPiece = 1 << 18;

/// What a checksum is of: name, size and time.
std::string subjectOf(const VersionItem& item) {
  return VersionItem::escaped(item.name) + " " + std::to_string(item.size) + " " +
         std::to_string(item.seconds) + "." + std::to_string(item.nanoseconds);
}

std::string lineOf(const VersionItem& item, std::uint32_t sum) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), " %08x\n", sum);
  return subjectOf(item) + text.data();
}

}  // namespace

/// The file that the copy was made of, as long as it has not changed; invalid otherwise.
ZAN_Descriptor Verification::sourceOf(const VersionItem& item) const {
  for (const Source& source : mSources) {
    if (item.name != source.copy && !isBelow(item.name, source.copy)) continue;
    const std::string name =
        source.name.empty() ? item.name.substr(std::min(source.copy.size() + 1, item.name.size()))
                            : source.name;
    ZAN_Descriptor file = openPathBelow(source.folder->descriptor(), name, O_RDONLY | O_NONBLOCK);
    struct stat state {};
    // Not every file system keeps more than seconds.
    if (file && ::fstat(file.get(), &state) == 0 && S_ISREG(state.st_mode) &&
        static_cast<std::uint64_t>(state.st_size) == item.size &&
        state.st_mtim.tv_sec == item.seconds &&
        (state.st_mtim.tv_nsec == item.nanoseconds || item.nanoseconds == 0))
      return file;
    return {};
  }
  return {};
}

void Verification::verify(const VersionView::Entry& entry, const std::string& known,
                          const std::function<void(std::uint32_t)>& note) {
  const VersionItem& item = entry.item;
  const auto fail = [&](const std::string& why) {
    if (mHooks.failed)
      mHooks.failed(ZAN_FilesUtils::joinedPath(entry.holder->path(), item.name) + ": " + why);
  };
  const ZAN_Descriptor copy =
      openPathBelow(entry.holder->descriptor(), item.name, O_RDONLY | O_NONBLOCK);
  const ZAN_Descriptor source = sourceOf(item);
  if (copy && !source && known.empty()) {
    ++mCounts.unknown;
    return;
  }
  const auto goesOn = [&](std::uint64_t bytes) {
    Counts counts = mCounts;
    counts.bytes += bytes;
    return !mHooks.goesOn || mHooks.goesOn(item.name, counts);
  };
  const auto found = copy ? readTogether(copy.get(), source.get(), goesOn) : std::nullopt;
  if (!found && copy && errno == ECANCELED) return;
  if (!found) {
    ++mCounts.mismatches;
    return fail(std::string("it cannot be read: ") + std::strerror(errno));
  }
  ++mCounts.files;
  mCounts.bytes += item.size;
  const bool isAsKnown = known.empty() || lineOf(item, found->second) == known + "\n";
  if (source ? found->first : isAsKnown) return note(found->second);
  // It may have changed while it was read.
  if (source && !sourceOf(item)) {
    --mCounts.files;
    ++mCounts.unknown;
    return;
  }
  ++mCounts.mismatches;
  fail(source ? "it is not what its source is, though neither was changed since it was copied"
              : "it is not what it was when it was verified last, though it was not changed");
}

Outcome Verification::perform(const Share& share) {
  const ZAN_Descriptor old(
      ::openat(mVersions.descriptor(), mSums.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  LineReader lines(old.get());
  std::string_view line;
  bool isThere = old && lines.next(line);
  const std::string fresh = mSums + ".new";
  ZAN_Descriptor file(::openat(mVersions.descriptor(), fresh.c_str(),
                               O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  std::string buffer;
  bool isWritten = static_cast<bool>(file);
  bool isStopped = false;
  const Outcome done = mView.forEach({}, [&](const VersionView::Entry& entry) {
    if (mHooks.goesOn && !mHooks.goesOn(entry.item.name, mCounts)) {
      isStopped = true;
      return false;
    }
    if (entry.item.kind != VersionItem::Kind::file) return true;
    const std::string name = VersionItem::escaped(entry.item.name);
    while (isThere && comesBefore(nameOfLine(line), name)) isThere = lines.next(line);
    const bool isKnown = isThere && line.starts_with(subjectOf(entry.item) + " ");
    const std::string known(isKnown ? line : std::string_view());
    const auto number = static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef*>(name.data()), static_cast<uInt>(name.size())));
    std::string noted = known.empty() ? known : known + "\n";
    if (number % share.parts == share.part && mCounts.files < share.files &&
        mCounts.bytes < share.bytes) {
      verify(entry, known, [&](std::uint32_t sum) { noted = lineOf(entry.item, sum); });
    }
    buffer += noted;
    if (buffer.size() >= kPiece) {
      isWritten = isWritten && writeAll(file.get(), buffer);
      buffer.clear();
    }
    return true;
  });
  isWritten = isWritten && writeAll(file.get(), buffer) && ::fsync(file.get()) == 0;
  // Half of a list would forget the rest; without any the next verification compares with sources.
  const bool isKept =
      done && !isStopped && isWritten &&
      ::renameat(mVersions.descriptor(), fresh.c_str(), mVersions.descriptor(), mSums.c_str()) == 0;
  if (!isKept) ::unlinkat(mVersions.descriptor(), fresh.c_str(), 0);
  return done;
}

}  // namespace corvana
