#pragma once

#include <string>
#include <vector>

namespace corvana {

/// What the desktop starts at login.
class LoginItems {
 public:
  /// `folders`: those with autostart entries, the user's own first: an entry there stands for those
  /// of the same name behind it. `path`: where programs are looked for, as in PATH.
  LoginItems(std::vector<std::string> folders, std::string path);
  /// The folders and the search path that this process's environment names.
  static LoginItems ofUser(const std::string& configurationFolder);

  /// The programs of the entries that are switched on, in the order of the entries' names: the full
  /// path, or the word of the entry for a program that is not found.
  std::vector<std::string> programs() const;

 private:
  std::string fullPath(const std::string& program) const;

  std::vector<std::string> mFolders;
  std::string mPath;
};

}  // namespace corvana
