#pragma once

#include <string>
#include <string_view>

namespace corvana {

/// The innermost "X.app" in whose Contents/MacOS the executable lies, as a full path; empty outside
/// of any.
std::string bundlePathOfExecutable(std::string_view executable);

/// A running program's path as the system gives it, without the mark of a file that was replaced
/// meanwhile.
std::string_view withoutDeletedMark(std::string_view executable);

}  // namespace corvana
