#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "execute/engine/ChildProgram.h"
#include "execute/engine/Engine.h"
#include "execute/restic/Repository.h"

namespace corvana {

/// A pattern that matches this very path.
std::string resticLiteral(std::string_view path);

/// The user's name as restic writes it into locks and snapshots; empty when it is not known.
std::string resticUser();

/// How a call of restic ended, by its exit code and its words.
struct ResticEnd {
  enum class Kind {
    done,
    partly,         ///< a snapshot was made, some files could not be read
    stopped,        ///< since somebody wanted that
    skipWanted,     ///< it was stopped since the current item is to be left out
    wrongPassword,  ///< or no key of this repository
    loginRefused,   ///< the server does not take the keys, or the password, of the address
    noRepository,   ///< nothing is there
    locked,         ///< by another program; the text says by which
    unreachable,    ///< the target does not answer
    full,           ///< the target
    damaged,        ///< the repository
    tooNew,         ///< the repository, for this restic
    failed
  };
  Kind kind = Kind::done;
  std::string text = {};  ///< in restic's own words; empty when all went well

  bool isDone() const { return kind == Kind::done; }
  /// As an error that tells where, and what helps. `unavailable`: it may be tried again.
  Error error(const std::string& place) const;
  /// From the exit code and what was said on the standard error.
  static ResticEnd from(const ChildProgram::End& end, const std::string& errors);
};

/// Calls of restic for one repository. Passwords reach it by descriptors, the keys of an object
/// storage by its environment, and nothing else; its times are universal. It is stopped by SIGINT,
/// upon which it removes its lock. What was killed leaves one: a file in the hidden folder tells
/// later that the process was ours. Blocks; thread: one.
class Restic {
 public:
  struct Call {
    std::vector<std::string> words;  ///< the command and its arguments
    /// Gets each line of the standard output, and of the standard error.
    std::function<void(std::string_view)> onLine{};
    std::function<void(std::string_view)> onErrorLine{};
    bool wantsEmptyLines = false;
    std::vector<int> descriptors{};  ///< that it gets
    bool obeysSkip = false;
    double patienceForLocks = 1800;  ///< seconds that a lock of somebody else is waited for
    /// Called now and then while it waits for locks: whose they are.
    std::function<void(const std::string&)> onWait{};
  };

  Restic(EngineHost& host, RepositoryAddress address, std::string password)
      : m(host), mAddress(std::move(address)), mPassword(std::move(password)) {}

  ResticEnd call(const Call& call);
  /// All that it says on the standard output.
  Result<std::string> answer(std::vector<std::string> words);
  const RepositoryAddress& address() const { return mAddress; }

 private:
  ResticEnd callOnce(const Call& call);
  /// Whether a locked repository can be used again: locks of ours whose processes are gone go, for
  /// others it waits. A machine of the same name is not taken for this one. `whose`: the last ones
  /// seen.
  bool waitForLocks(const Call& call, std::string& whose);
  bool isGone(const ZAN_Value& lock) const;
  std::string noteOf(std::int64_t process) const;

  EngineHost& m;
  RepositoryAddress mAddress;
  std::string mPassword;
};

}  // namespace corvana
