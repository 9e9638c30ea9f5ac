#include "platform/Volumes.h"

namespace corvana {

std::string Mount::bsdName() const {
  if (!source.starts_with("/dev/")) return {};
  return source.substr(source.rfind('/') + 1);
}

}  // namespace corvana
