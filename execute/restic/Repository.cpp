#include "execute/restic/Repository.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "execute/engine/Words.h"
#include "platform/KeyringTool.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr std::size_t kLongestSecret = 1 << 16;
constexpr std::string_view kS3 = "s3:";

KeyringTool::Attributes keyringAttributes(const std::string& address) {
  return {"repository", address};
}

std::string decoded(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto isDigit = [&](std::size_t at) {
      return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at])) != 0;
    };
    if (text[i] == '%' && isDigit(i + 1) && isDigit(i + 2)) {
      bytes.push_back(
          static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
      i += 2;
    } else {
      bytes.push_back(text[i]);
    }
  }
  return bytes;
}

/// A file name of its own for each address.
std::string fileFor(const std::string& address, const std::string& folder) {
  std::string name = "Repository ";
  for (const char letter : address) {
    if (std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '.' || letter == '-') {
      name.push_back(letter);
    } else {
      std::array<char, 4> code{};
      std::snprintf(code.data(), code.size(), "%%%02X", static_cast<unsigned char>(letter));
      name += code.data();
    }
  }
  constexpr std::size_t kLongestName = 200;
  if (name.size() > kLongestName)
    name = name.substr(0, kLongestName) + std::to_string(std::hash<std::string>()(address));
  return ZAN_FilesUtils::joinedPath(folder, name);
}

}  // namespace

bool RepositoryAddress::isRemote() const {
  // As restic tells a folder "a:b" from a scheme: by the schemes that it knows.
  for (const std::string_view scheme :
       {"sftp:", "rest:", "s3:", "rclone:", "b2:", "azure:", "gs:", "swift:"}) {
    if (mText.starts_with(scheme)) return true;
  }
  return false;
}

bool RepositoryAddress::mayHaveSecret() const {
  return isRemote() && !mText.starts_with("sftp:") && mText.find("://") != std::string::npos;
}

std::optional<RepositoryAddress::Login> RepositoryAddress::login() const {
  if (!mayHaveSecret()) return std::nullopt;
  const auto host = mText.find("://") + 3;
  const auto end = mText.find('/', host);
  const auto at = mText.substr(0, end).rfind('@');
  if (at == std::string::npos || at < host) return std::nullopt;
  const std::string both = mText.substr(host, at - host);
  const auto colon = both.find(':');
  if (colon == std::string::npos) return std::nullopt;
  return Login{host, both.substr(0, colon), both.substr(colon + 1)};
}

std::string RepositoryAddress::shown() const {
  const auto login = this->login();
  if (!login) return mText;
  std::string text = mText;
  const bool isS3 = text.starts_with(kS3);
  const std::string both = login->user + ":" + login->password;
  text.replace(login->start, both.size() + (isS3 ? 1 : 0), isS3 ? "" : login->user);
  return text;
}

std::string RepositoryAddress::forRestic() const {
  return mText.starts_with(kS3) ? shown() : mText;
}

std::vector<std::string> RepositoryAddress::environment() const {
  const auto login = this->login();
  if (!login || !mText.starts_with(kS3)) return {};
  return {"AWS_ACCESS_KEY_ID=" + decoded(login->user),
          "AWS_SECRET_ACCESS_KEY=" + decoded(login->password)};
}

std::string RepositoryAddress::sftpCommand(const std::string& ssh) const {
  constexpr std::string_view kScheme = "sftp:";
  if (!mText.starts_with(kScheme)) return {};
  std::string rest = mText.substr(kScheme.size());
  std::string port;
  std::string host;
  if (rest.starts_with("//")) {
    rest = rest.substr(2);
    host = rest.substr(0, rest.find('/'));
    const auto colon = host.rfind(':');
    if (colon != std::string::npos && host.find(']', colon) == std::string::npos) {
      port = host.substr(colon + 1);
      host = host.substr(0, colon);
    }
  } else {
    host = rest.substr(0, rest.find(':'));
  }
  // Nobody is there to be asked, and a server that is away must not hold the queue.
  std::string command = ssh +
                        " -o BatchMode=yes -o ConnectTimeout=20 -o ServerAliveInterval=15"
                        " -o ServerAliveCountMax=4";
  if (!port.empty()) command += " -p " + shellWord(port);
  return command + " " + shellWord(host) + " -s sftp";
}

Result<RepositorySecret> RepositorySecret::find(const std::string& shownAddress,
                                                const std::string& folder, const Ask& ask) {
  std::optional<std::string> text;
  const std::string file = fileFor(shownAddress, folder);
  if (ZAN_FilesUtils::exists(file)) {
    auto found = passwordFrom(file);
    if (!found) return found.error();
    text = *std::move(found);
  } else if (KeyringTool::isThere()) {
    const auto words = KeyringTool::lookUp(keyringAttributes(shownAddress));
    const auto found = ask ? ask(words) : runToolBlocking(words, KeyringTool::kSeconds);
    if (!found && found.error().kind == ErrorKind::unavailable)
      return Error{ErrorKind::unavailable,
                   shownAddress +
                       ": its password is in the desktop's keyring, which does not answer (" +
                       found.error().text +
                       "); unlock that, or let corvana9 edit REF --password-file FILE do without"};
    if (found && !found->empty()) text = *found;
  }
  const auto value = text ? ZAN_Json::valueWithJson(*text) : Result<ZAN_Value>(Error{});
  if (!text || !value || !value->isDictionary()) {
    return Error{
        ErrorKind::absent,
        shownAddress +
            ": its password is not known, or the desktop's keyring is locked; unlock that, "
            "or give the password by --password-file FILE, or let "
            "corvana9 edit REF --password-file FILE keep it"};
  }
  return RepositorySecret{value->string("password"), value->string("address")};
}

Result<std::string> RepositorySecret::keep(const std::string& shownAddress,
                                           const std::string& folder) const {
  ZAN_Value value = ZAN_Value::dictionary({{"password", password}});
  if (!address.empty()) value.setValue("address", address);
  const auto text = ZAN_Json::jsonWithValue(value, {.compact = true, .plain = true});
  if (!text) return text.error();
  if (const Outcome made = ZAN_FilesUtils::createFolder(folder, 0700); !made) return made.error();
  const std::string file = fileFor(shownAddress, folder);
  ZAN_FileWriter::Options options;
  options.attributes.mode = 0600;
  if (const Outcome written = ZAN_FileWriter({}).write(file, *text + "\n", options); !written)
    return written.error();
  if (!KeyringTool::isThere()) return "in the file " + file;
  const auto attributes = keyringAttributes(shownAddress);
  const auto stored =
      runToolBlocking(KeyringTool::store(attributes, shownAddress, file), KeyringTool::kSeconds);
  const auto found = stored
                         ? runToolBlocking(KeyringTool::lookUp(attributes), KeyringTool::kSeconds)
                         : Result<std::string>(stored.error());
  if (!found || found->substr(0, found->find('\n')) != *text) return "in the file " + file;
  if (const Outcome removed = ZAN_FilesUtils::removeFile(file); !removed) return removed.error();
  return std::string("in the desktop's keyring");
}

Result<std::string> RepositorySecret::passwordFrom(const std::string& file) {
  const ZAN_Descriptor open(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat state {};
  if (!open || ::fstat(open.get(), &state) != 0)
    return Error{ErrorKind::unreadable, file + ": " + std::strerror(errno)};
  if (S_ISREG(state.st_mode) && (state.st_mode & 077) != 0) {
    return Error{ErrorKind::refused,
                 file + ": others may read it, and it holds a password; chmod 600 it"};
  }
  auto text = ZAN_FilesUtils::readBeginning(file, kLongestSecret);
  if (!text) return text.error();
  auto line = text->substr(0, text->find_first_of("\r\n"));
  if (line.empty()) return Error{ErrorKind::refused, file + ": there is no password in it"};
  return line;
}

}  // namespace corvana
