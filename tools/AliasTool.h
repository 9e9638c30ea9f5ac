#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

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

}  // namespace corvana
