#include "execute/plain/SourceSurvey.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <memory>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr std::string_view kProbe = ".corvana9-probe";
constexpr int kReading = O_RDONLY | O_DIRECTORY | O_NONBLOCK;

bool isThere(int folder, const std::string& name) {
  struct stat state {};
  return ::fstatat(folder, name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

std::string capital(std::string_view name) {
  std::string text(name);
  std::ranges::transform(text, text.begin(),
                         [](unsigned char letter) { return static_cast<char>(::toupper(letter)); });
  return text;
}

/// Letters of all scripts, whatever the user's region.
class Letters {
 public:
  Letters() : mLocale(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  ~Letters() {
    if (mLocale != nullptr) ::freelocale(mLocale);
  }
  Letters(const Letters&) = delete;
  Letters& operator=(const Letters&) = delete;

  std::string folded(std::string_view name) const {
    if (mLocale == nullptr) return capital(name);
    const locale_t before = ::uselocale(mLocale);
    std::string text;
    mbstate_t in{};
    mbstate_t out{};
    for (std::size_t at = 0; at < name.size();) {
      wchar_t letter = 0;
      const std::size_t length = ::mbrtowc(&letter, name.data() + at, name.size() - at, &in);
      if (length == 0 || length > name.size()) {
        in = {};
        text.push_back(name[at++]);
        continue;
      }
      std::array<char, MB_LEN_MAX> bytes{};
      const std::size_t written = ::wcrtomb(
          bytes.data(), static_cast<wchar_t>(::towupper(static_cast<wint_t>(letter))), &out);
      if (written == static_cast<std::size_t>(-1)) {
        out = {};
        text.append(name, at, length);
      } else {
        text.append(bytes.data(), written);
      }
      at += length;
    }
    ::uselocale(before);
    return text;
  }

 private:
  locale_t mLocale;
};

}  // namespace

std::string withoutCase(std::string_view name) {
  const bool isPlain = std::ranges::all_of(
      name, [](char letter) { return static_cast<unsigned char>(letter) < 0x80; });
  if (isPlain) return capital(name);
  static const Letters letters;
  return letters.folded(name);
}

bool tellsCase(const HeldFolder& folder, std::string_view file) {
  const int place = folder.descriptor();

  // Not by its number, which drivers in user space make up for each spelling.
  if (isThere(place, std::string(file))) return !isThere(place, capital(file));
  const std::string probe(kProbe);
  ::unlinkat(place, probe.c_str(), 0);
  const ZAN_Descriptor made(
      ::openat(place, probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!made) return true;
  const bool tells = !isThere(place, capital(probe));
  ::unlinkat(place, probe.c_str(), 0);
  return tells;
}

SourceSurvey::SourceSurvey(const HeldFolder& source, Wanted wanted,
                           const std::function<bool()>& goesOn) {
  if (!wanted.subvolumes && !wanted.clashes) return;
  struct stat state {};
  if (::fstat(source.descriptor(), &state) != 0) return;
  mDevice = state.st_dev;
  mToDo.emplace_back();
  while (!mToDo.empty() && goesOn()) {
    const std::string folder = std::move(mToDo.back());
    mToDo.pop_back();
    lookAt(source, folder, wanted);
  }
}

void SourceSurvey::lookAt(const HeldFolder& source, const std::string& folder, Wanted wanted) {
  ZAN_Descriptor opened = openPathBelow(source.descriptor(), folder, kReading);
  struct stat state {};
  if (!opened || ::fstat(opened.get(), &state) != 0) return;
  if (state.st_dev != mDevice) {
    // What is mounted is known from the table; this is on the same mount.
    if (wanted.subvolumes) mSubvolumes.push_back(folder);
    return;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(opened.get()), &::closedir);
  if (!stream) return;
  const int place = opened.release();
  std::map<std::string, Clash> byName;
  while (const dirent* const entry = ::readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string relative = ZAN_FilesUtils::joinedPath(folder, name);
    bool isFolder = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN)
      isFolder = ::fstatat(place, name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
                 S_ISDIR(state.st_mode);
    if (isFolder) mToDo.push_back(relative);
    if (wanted.clashes) byName[withoutCase(name)].push_back(relative);
  }
  for (auto& [name, clash] : byName) {
    if (clash.size() < 2) continue;
    std::ranges::sort(clash);
    mClashes.push_back(std::move(clash));
  }
}

const std::set<std::string>& CaseTwins::namesIn(const std::string& folder) {
  if (mFolder == folder) return mNames;
  mFolder = folder;
  mNames.clear();
  const ZAN_Descriptor opened = openPathBelow(mSource.descriptor(), folder, kReading);
  if (!opened) return mNames;
  for (const auto& name : namesInFolder(opened.get()).value_or(std::vector<std::string>()))
    mNames.insert(withoutCase(name));
  return mNames;
}

bool CaseTwins::has(std::string_view name) {
  if (name.ends_with('/')) name.remove_suffix(1);
  std::string folder;
  for (;;) {
    const auto slash = name.find('/', folder.empty() ? 0 : folder.size() + 1);
    const std::string path(name.substr(0, slash));
    struct stat state {};
    if (::fstatat(mSource.descriptor(), path.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
      return namesIn(folder).contains(withoutCase(ZAN_FilesUtils::lastPathComponent(path)));
    }
    if (slash == std::string_view::npos) return false;
    folder = path;
  }
}

}  // namespace corvana
