#include "execute/engine/Engine.h"

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

std::string EngineHost::program(std::string_view name) const {
  const auto found = programs.find(name);
  return found == programs.end() ? ZAN_FilesUtils::joinedPath("/usr/bin", std::string(name))
                                 : found->second;
}

Outcome VersionTarget::checkOutside(const HeldFolder& holder, const std::string& nameInIt) const {
  const auto real = folder.realPath();
  const auto held = holder.realPath();
  if (!real || !held) return {};
  const std::string place = target == "." ? *real : ZAN_FilesUtils::joinedPath(*real, target);
  if (!ZAN_FilesUtils::isAtOrBelow(place, ZAN_FilesUtils::joinedPath(*held, nameInIt))) return {};
  return Error{ErrorKind::refused,
               ZAN_FilesUtils::joinedPath(folder.path(), target) +
                   ": the copies themselves lie there, and would be changed; choose another "
                   "folder"};
}

std::string VersionTarget::placeOf(const std::string& other) const {
  const std::string rest = other.substr(name.size());
  if (target != ".") return target + rest;
  return rest.empty() ? "." : rest.substr(1);
}

}  // namespace corvana
