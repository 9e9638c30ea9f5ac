#include "platform/Processes.h"

namespace corvana {

std::string bundlePathOfExecutable(std::string_view executable) {
  constexpr std::string_view kInside = ".app/Contents/MacOS/";
  constexpr std::size_t kExtension = 4;
  const std::size_t found = executable.rfind(kInside);
  if (found == std::string_view::npos || found == 0 || executable[found - 1] == '/') return {};
  if (found + kInside.size() == executable.size()) return {};
  return std::string(executable.substr(0, found + kExtension));
}

std::string_view withoutDeletedMark(std::string_view executable) {
  constexpr std::string_view kMark = " (deleted)";
  if (executable.ends_with(kMark)) executable.remove_suffix(kMark.size());
  return executable;
}

}  // namespace corvana
