#include "execute/plain/Rsync.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr std::size_t kKeptErrors = 200;
constexpr std::size_t kLongestLine = 1 << 16;
constexpr std::size_t kMostUnread = 10'000;
/// Where the copy has something of another kind that stays, such as a folder that is not empty.
constexpr std::string_view kNoWay = "could not make way for new ";
constexpr std::string_view kLongPath = "filename overflows max-path len by ";

/// Hands out the whole lines of `rest` + `bytes` and keeps what follows the last of them.
template <class Handler>
void splitLines(std::string& rest, std::string_view bytes, std::string_view separators,
                Handler handler) {
  rest.append(bytes);
  std::size_t start = 0;
  for (std::size_t end; (end = rest.find_first_of(separators, start)) != std::string::npos;
       start = end + 1) {
    if (end > start) handler(std::string_view(rest).substr(start, end - start));
  }
  rest.erase(0, start);
  if (rest.size() > kLongestLine) rest.clear();
}

std::optional<std::uint64_t> leadingNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

std::optional<std::uint64_t> numberAfter(std::string_view text, std::string_view word) {
  const auto at = text.find(word);
  if (at == std::string_view::npos) return std::nullopt;
  text.remove_prefix(at + word.size());
  return leadingNumber(text);
}

bool isOctal(char letter) { return letter >= '0' && letter <= '7'; }

}  // namespace

std::vector<std::string> RsyncOutput::arguments(bool isAtOnce) {
  // "@" tells an item's line from the progress lines; a name comes last, since it may hold blanks.
  // Of what is buffered each line is written whole, and at once all the same.
  return {"--no-human-readable", "--out-format=@%i %l %n", "--outbuf=B",
          std::string("--info=name0,del0,stats2,flist2") + (isAtOnce ? ",progress2" : "")};
}

std::string RsyncOutput::decodedName(std::string_view text) {
  std::string name;
  name.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 4 < text.size() && text[i + 1] == '#' && isOctal(text[i + 2]) &&
        isOctal(text[i + 3]) && isOctal(text[i + 4])) {
      name.push_back(static_cast<char>(((text[i + 2] - '0') << 6) | ((text[i + 3] - '0') << 3) |
                                       (text[i + 4] - '0')));
      i += 4;
    } else {
      name.push_back(text[i]);
    }
  }
  return name;
}

void RsyncOutput::readOutput(std::string_view bytes) {
  splitLines(mOutputRest, bytes, "\r\n", [this](std::string_view line) { readOutputLine(line); });
}

void RsyncOutput::readErrors(std::string_view bytes) {
  splitLines(mErrorRest, bytes, "\n", [this](std::string_view line) { readErrorLine(line); });
}

void RsyncOutput::finish() {
  readOutput("\n");
  readErrors("\n");
}

void RsyncOutput::readOutputLine(std::string_view line) {
  constexpr std::string_view kListed = "Number of files: ";
  if (line.front() == '@') return readItemLine(line.substr(1));
  if (const auto size = numberAfter(line, "Total file size: "); size && line.starts_with('T'))
    mBytesListed = *size;
  if (!line.starts_with(kListed)) return readProgressLine(line);
  // "Number of files: 1007 (reg: 1000, dir: 7)"
  mListed = numberAfter(line, kListed).value_or(0);
  mFoldersListed = numberAfter(line, "dir: ").value_or(0);
}

void RsyncOutput::readItemLine(std::string_view line) {
  Item item;
  item.change = line.substr(0, line.find(' '));
  line.remove_prefix(item.change.size());
  skipBlanks(line);
  const auto size = leadingNumber(line);
  if (!size || line.size() < 2 || line.front() != ' ') return;
  item.size = *size;
  item.name = decodedName(line.substr(1));
  if (item.isTransfer()) {
    ++mFiles;
    mBytesBegun += item.size;
  }
  if (mOnItem) mOnItem(item);
  if (!item.isDeletion()) mCurrentItem = std::move(item.name);
}

// "        30000007 100%  286.10MB/s    0:00:00 (xfr#5, to-chk=0/7)". The percentage is one of what
// is known so far, and bytes and count are also of what could not be opened or has vanished.
void RsyncOutput::readProgressLine(std::string_view line) {
  skipBlanks(line);
  const auto bytes = leadingNumber(line);
  if (bytes && line.starts_with(" files")) mSeen = std::max(mSeen, *bytes);
  skipBlanks(line);
  const auto percent = leadingNumber(line);
  if (!bytes || !percent || !line.starts_with('%')) return;
  mBytes = std::max(mBytes, *bytes);
  // Before an error rsync ends this line among the errors, so that the next one follows in it.
  const auto next = std::min(line.find('@'), line.find("Number of files: "));
  if (next != line.npos) readOutputLine(line.substr(next));
}

std::optional<std::string> RsyncOutput::itemOfHalf(const std::string& name) {
  constexpr std::size_t kEnding = 7;
  const auto slash = name.rfind('/');
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  if (name.size() < start + kEnding + 2 || name[start] != '.') return std::nullopt;
  const std::string_view ending = std::string_view(name).substr(name.size() - kEnding);
  if (ending.front() != '.' || !std::ranges::all_of(ending.substr(1), [](unsigned char letter) {
        return std::isalnum(letter) != 0;
      }))
    return std::nullopt;
  return name.substr(0, start) + name.substr(start + 1, name.size() - kEnding - start - 1);
}

namespace {

/// The system's number at the end of an error; 0 without one.
int errorNumber(std::string_view line) {
  const auto open = line.rfind('(');
  if (open == std::string_view::npos) return 0;
  line.remove_prefix(open + 1);
  return static_cast<int>(leadingNumber(line).value_or(0));
}

bool isOddName(std::string_view name) {
  return name.find_first_of("\\:*?\"<>|") != std::string_view::npos || name.ends_with('.') ||
         name.ends_with(' ');
}

/// Whether the error is one of the item's own and not of the disk.
bool isLackOfSource(std::string_view line) {
  const int error = errorNumber(line);
  return error == EACCES || error == EPERM;
}

bool isLackOfCopy(std::string_view line, const std::string& item) {
  switch (errorNumber(line)) {
    case EINVAL:
    case EILSEQ:
    case ENAMETOOLONG:
    case ENOSYS:
    case EOPNOTSUPP:
    case EFBIG:
      return true;
    case EPERM:
    case EEXIST:
      return line.find("symlink") != std::string_view::npos ||
             line.find("mknod") != std::string_view::npos ||
             line.find("link \"") != std::string_view::npos ||
             line.find("xattr") != std::string_view::npos;
    case ENOENT:
      return isOddName(ZAN_FilesUtils::lastPathComponent(item));
    default:
      return false;
  }
}

}  // namespace

/// The path with what it stands for; what lies in the source counts as not read.
std::string RsyncOutput::placed(std::string path, std::string_view line, Failure& failure) {
  for (const Place& place : mPlaces) {
    const auto rest = ZAN_FilesUtils::relativePath(path, place.held);
    if (!rest) continue;
    std::string item(*rest == "." ? std::string_view() : *rest);
    if (place.isSource && mUnread) mUnread->insert(item);
    if (mUnread && mUnread->size() > kMostUnread) mUnread.reset();
    if (place.isSource && !item.empty() && isLackOfSource(line)) failure.lack = item;
    if (place.isCopy) {
      if (auto whole = itemOfHalf(item)) item = *std::move(whole);
      if (!item.empty() && isLackOfCopy(line, item)) {
        failure.lack = item;
      } else if (isLackOfSource(line)) {
        failure.hindered = item;
      }
    }
    return ZAN_FilesUtils::joinedPath(place.path, item);
  }
  return path;
}

/// It names an item that the sender cannot list, by its path in the source; what leaves that out is
/// the folder around it.
void RsyncOutput::readLongPath(std::string_view line) {
  constexpr std::size_t kShown = 100;
  const std::string_view path =
      line.substr(std::min(line.find(' ', kLongPath.size()), line.size() - 1) + 1);
  const std::string folder(path.substr(0, std::min(path.rfind('/'), path.size())));
  const auto source = std::ranges::find(mPlaces, true, &Place::isSource);
  const std::string start = source == mPlaces.end() ? std::string() : source->path + "/";
  ++mErrorCount;
  ++mLackCount;
  if (mErrors.size() < kKeptErrors) {
    mErrors.push_back(
        {start + folder.substr(0, kShown) + (folder.size() > kShown ? "...: " : ": ") +
             "deep in it there is a path longer than the 4095 bytes that programs can "
             "name at once, and what lies there is not copied; shorten names above it",
         folder});
  }
  mLastErrorPath = start + folder;
  if (!mFirstErrorPath) mFirstErrorPath = mLastErrorPath;
}

void RsyncOutput::readErrorLine(std::string_view line) {
  std::string text = decodedName(line);
  if (line.starts_with(kLongPath)) return readLongPath(text);
  std::optional<std::string> path;
  Failure failure;
  const auto open = text.find('"');
  auto close = text.rfind('"');
  if (open != std::string::npos && close != open) {
    // Of two names the first is the path.
    for (const std::string_view between : {"\" -> \"", "\",\""})
      close = std::min(close, text.find(between, open + 1));
    path = placed(text.substr(open + 1, close - open - 1), line, failure);
    text.replace(open + 1, close - open - 1, *path);
  } else if (const auto stands = text.find(": "); line.starts_with(kNoWay) && stands != text.npos) {
    const auto copy = std::ranges::find(mPlaces, true, &Place::isCopy);
    const std::string name = text.substr(stands + 2);
    path = copy == mPlaces.end() ? name : ZAN_FilesUtils::joinedPath(copy->path, name);
    text = *path +
           ": what stands there in the copy could not be removed to make way; remove or rename it";
  }
  if (line.find("No space left on device") != std::string_view::npos ||
      line.find("Disk quota exceeded") != std::string_view::npos)
    mIsFull = true;
  // The closing line only sums up, and a file that vanished while being read was not the copy's
  // fault.
  for (const std::string_view harmless :
       {"rsync error:", "rsync warning:", "file has vanished:", "directory has vanished:",
        "IO error encountered", "rsync: [sender] IO error encountered"}) {
    if (line.starts_with(harmless)) return;
  }
  // A folder that its owner has closed is closed in the copy, too.
  if (failure.hindered && mUnread && mUnread->contains(*failure.hindered) &&
      line.find("opendir") != std::string_view::npos)
    return;
  ++mErrorCount;
  if (failure.lack) ++mLackCount;
  if (failure.lack && errorNumber(line) == EFBIG) mTooLarge = failure.lack;
  failure.text = std::move(text);
  if (mErrors.size() < kKeptErrors) mErrors.push_back(std::move(failure));
  if (!path) return;
  mLastErrorPath = path;
  if (!mFirstErrorPath) mFirstErrorPath = std::move(path);
}

Result<RsyncProcess::End> RsyncProcess::run(const Task& task, ExecuteControl& control,
                                            RsyncOutput& output,
                                            const std::function<void()>& onProgress) {
  auto end =
      ChildProgram::run({.arguments = task.arguments,
                         .descriptors = task.descriptors,
                         .input = task.input,
                         .watched = task.watched,
                         .onWatched = task.onWatched,
                         .onOutput =
                             [&](std::string_view bytes) {
                               control.noteNews();
                               output.readOutput(bytes);
                             },
                         .onErrors = [&](std::string_view bytes) { output.readErrors(bytes); },
                         .onNews = onProgress},
                        control);
  if (end) output.finish();
  return end;
}

}  // namespace corvana
