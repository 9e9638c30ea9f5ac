#include "execute/plain/CopyMark.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ZANCocoaFramework/ZAN_Json.h"

namespace corvana {

namespace {

constexpr std::size_t kLongest = 64 << 10;
constexpr std::string_view kExplanation =
    "Corvana 9 fills this folder: what its source no longer has is deleted here. Without this file "
    "it does not know the folder any more.";

std::string pathOf(const HeldFolder& copy) {
  return copy.path() + "/" + std::string(CopyMark::kName);
}

Error failed(const HeldFolder& copy, ErrorKind kind) {
  return {kind, pathOf(copy) + ": " + std::strerror(errno)};
}

}  // namespace

std::string CopyMark::toText() const {
  return "action " + std::to_string(reference) + " \"" + title + "\" (" + source + ")";
}

Result<std::optional<CopyMark>> CopyMark::read(const HeldFolder& copy) {
  const ZAN_Descriptor file(::openat(copy.descriptor(), std::string(kName).c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return std::optional<CopyMark>();
  if (!file) return failed(copy, ErrorKind::unreadable);
  std::string text(kLongest, '\0');
  const auto count = ::read(file.get(), text.data(), text.size());
  if (count < 0) return failed(copy, ErrorKind::unreadable);
  if (count == 0) return std::optional<CopyMark>();
  text.resize(static_cast<std::size_t>(count));
  const auto value = ZAN_Json::valueWithJson(text);
  if (!value || !value->isDictionary())
    return Error{ErrorKind::damaged, pathOf(copy) + ": it does not say whose copy this is"};
  return std::optional(CopyMark{.machine = value->string("machine"),
                                .home = value->string("home"),
                                .reference = value->integer("reference"),
                                .title = value->string("title"),
                                .source = value->string("source"),
                                .volume = value->string("volume")});
}

Outcome CopyMark::write(const HeldFolder& copy) const {
  auto text = ZAN_Json::jsonWithValue(ZAN_Value::dictionary({{"about", kExplanation},
                                                             {"machine", machine},
                                                             {"home", home},
                                                             {"reference", reference},
                                                             {"title", title},
                                                             {"source", source},
                                                             {"volume", volume}}),
                                      {.plain = true});
  if (!text) return text.error();
  text->push_back('\n');
  const std::string fresh = std::string(kName) + ".new";
  ::unlinkat(copy.descriptor(), fresh.c_str(), 0);
  const ZAN_Descriptor file(::openat(copy.descriptor(), fresh.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) return failed(copy, ErrorKind::unwritable);
  const auto written = ::write(file.get(), text->data(), text->size());
  if (written != static_cast<ssize_t>(text->size()) || ::fsync(file.get()) != 0 ||
      ::renameat(copy.descriptor(), fresh.c_str(), copy.descriptor(), std::string(kName).c_str()) !=
          0) {
    const Error error = failed(copy, ErrorKind::unwritable);
    ::unlinkat(copy.descriptor(), fresh.c_str(), 0);
    return error;
  }
  return {};
}

}  // namespace corvana
