#include "execute/engine/Engine.h"

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

std::string EngineHost::program(std::string_view name) const {
  const auto found = programs.find(name);
  return found == programs.end() ? ZAN_FilesUtils::joinedPath("/usr/bin", std::string(name))
                                 : found->second;
}

std::string VersionTarget::placeOf(const std::string& other) const {
  const std::string rest = other.substr(name.size());
  if (target != ".") return target + rest;
  return rest.empty() ? "." : rest.substr(1);
}

}  // namespace corvana
