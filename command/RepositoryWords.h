#pragma once

#include "command/CommandHome.h"

namespace corvana {

/// A repository as the user gives it: its address, and what opens it.
class RepositoryWords {
 public:
  /// Takes --engine, --repository and --password-file.
  explicit RepositoryWords(Arguments& arguments);

  bool isGiven() const { return mEngine || mAddress || mPasswordFile; }
  bool hasAddress() const { return mAddress.has_value(); }
  /// Whether the engine is one that needs a password, by these words.
  bool isRestic() const;
  /// A folder of this machine that is to be the repository; nothing for one far away.
  std::optional<std::string> folder() const;

  /// Makes sure that the repository can be opened, and keeps what opens it: asks for the password
  /// at the terminal when nothing is known of it. `place`: the address without passwords, or the
  /// folder.
  Outcome keepWhatOpens(CommandHome& home, const std::string& place) const;
  void applyTo(ZAN_Value& record) const;
  /// Refuses a record that asks of its engine what that cannot do.
  static Outcome check(const ZAN_Value& record);
  /// The address as it may be shown and stored.
  std::string shown() const;
  /// Absolute; empty when none was given.
  std::string passwordFile() const;

 private:
  std::optional<std::string> mEngine;
  std::optional<std::string> mAddress;
  std::optional<std::string> mPasswordFile;
};

}  // namespace corvana
