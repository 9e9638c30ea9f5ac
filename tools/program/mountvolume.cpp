#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iosfwd>
#include <iostream>
#include <istream>
#include <ostream>
#include <sstream>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/linux/Spawn.h"
#include "tools/DiskTool.h"
#include "volumes/AliasFile.h"

namespace corvana {

namespace {

constexpr const char* kShareTool = "/usr/bin/gio";
constexpr double kMostSeconds = 60;

/// A share that is mounted already is what was wanted; else why it is not.
Outcome whatBecame(const std::string& address, const Error& error) {
  constexpr std::string_view kOwnWords = ", gio: ";
  const std::string& text = error.text;
  if (text.find("already mounted") != std::string::npos) return {};
  std::string reason = text;
  if (const auto said = text.find(kOwnWords); said != std::string::npos) {
    reason = text.substr(text.find(": ", said + kOwnWords.size()) + 2);
  } else if (text.find("status 2") != std::string::npos) {
    reason = "wrong user or password, or nobody to ask for them";
  }
  constexpr std::string_view kLacking[] = {"implement mount", "not supported", "not found"};
  if (std::ranges::any_of(kLacking,
                          [&](auto part) { return reason.find(part) != std::string::npos; }))
    reason += " (shares need GVfs and a session bus: packages gvfs-backends and gvfs-fuse)";
  return Error{error.kind, address + ": " + reason};
}

/// The volume of that name, or null.
const Disk* named(const std::vector<Disk>& disks, const std::string& name) {
  for (const Disk& disk : disks) {
    if (disk.isVolume() && disk.volumeName() == name) return &disk;
    if (const Disk* part = named(disk.parts, name)) return part;
  }
  return nullptr;
}

/// The helper that mounts the volume of an alias file.
///
///     mountvolume FILE             what the alias leads to: a folder or device of this machine, or
///                                  the address of a share
///     mountvolume --share ADDRESS  a share; user and password come as two lines of standard input
///
/// It asks nobody anything: 0 when mounted, 1 when not, with the reason, 2 for wrong words.
class AliasTool {
 public:
  AliasTool(std::istream& in, std::ostream& err) : mIn(in), mErr(err) {}

  int run(const std::vector<std::string>& words);

 private:
  Outcome mountAlias(const std::string& path) const;
  Outcome mountPlace(const std::string& place) const;
  /// User and password may be empty.
  static Outcome mountShare(const std::string& address, const std::string& user,
                            const std::string& password);

  std::istream& mIn;
  std::ostream& mErr;
};

int AliasTool::run(const std::vector<std::string>& words) {
  Outcome done;
  if (words.size() == 2 && words.front() == "--share") {
    std::string user;
    std::string password;
    std::getline(mIn, user);
    std::getline(mIn, password);
    done = mountShare(words.back(), user, password);
  } else if (words.size() == 1 && !words.front().starts_with("--")) {
    done = mountAlias(words.front());
  } else {
    mErr << "Usage: mountvolume FILE\n       mountvolume --share ADDRESS\n";
    return 2;
  }
  if (done) return 0;
  mErr << done.error().text << '\n';
  return 1;
}

Outcome AliasTool::mountAlias(const std::string& path) const {
  if (!ZAN_FilesUtils::exists(path)) return Error{ErrorKind::absent, path + ": no such file"};
  const auto target = AliasFile::target(path);
  if (!target) return Error{ErrorKind::damaged, path + ": it leads nowhere"};
  return target->starts_with('/') ? mountPlace(*target) : mountShare(*target, {}, {});
}

Outcome AliasTool::mountPlace(const std::string& place) const {
  std::ostringstream ignored;
  const DiskTool tool(ignored, mErr);
  const auto disks = DiskList::read();
  if (!disks) return disks.error();
  const Disk* disk = disks->find(place).disk;
  const std::string& folder = tool.volumesFolder();
  if (!disk && ZAN_FilesUtils::isBelow(place, folder)) {
    const std::string_view below = *ZAN_FilesUtils::relativePath(place, folder);
    const std::string name(below.substr(0, below.find('/')));
    disk = disks->find(ZAN_FilesUtils::joinedPath(folder, name)).disk;
    if (!disk) disk = named(disks->disks(), name);
  }
  if (disk) {
    if (const auto mounted = tool.mount(*disk); !mounted) return mounted.error();
    return {};
  }
  if (ZAN_FilesUtils::exists(place)) return {};
  return Error{ErrorKind::absent, place + ": no disk is called so"};
}

Outcome AliasTool::mountShare(const std::string& address, const std::string& user,
                              const std::string& password) {
  std::string full = address;
  std::string answers;
  const auto host = address.find("://");
  if (!user.empty() && host != std::string::npos) {
    // A share of this kind is asked for user, domain and password, others for the password alone.
    if (address.starts_with("smb://")) {
      answers = user + "\n\n";
    } else if (address.find('@') == std::string::npos) {
      full.insert(host + 3, user + '@');
    }
    answers += password + '\n';
  }
  // In memory, so that no list of processes and no disk shows it.
  const ZAN_Descriptor input(::memfd_create("answers", MFD_CLOEXEC));
  if (!input ||
      ::write(input.get(), answers.data(), answers.size()) != static_cast<ssize_t>(answers.size()))
    return Error{ErrorKind::unavailable, address + ": no memory"};
  const std::string file =
      "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(input.get());
  // What it says is looked at, so it has to be in a known language.
  const auto output =
      runToolBlocking({"/bin/sh", "-c", "export LC_ALL=C.UTF-8; exec \"$1\" mount \"$2\" < \"$3\"",
                       "mountvolume", kShareTool, full, file},
                      kMostSeconds);
  return output ? Outcome() : whatBecame(address, output.error());
}

}  // namespace

}  // namespace corvana

int main(int count, char** arguments) {
  return corvana::AliasTool(std::cin, std::cerr)
      .run(std::vector<std::string>(arguments + (count > 0 ? 1 : 0), arguments + count));
}
