#pragma once

#include <array>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Network.h"
#include "platform/RunLoop.h"
#include "remote/RemoteCommand.h"

namespace corvana {

class ActionStore;
class Machine;
struct Records;

/// Messages of a stream, each behind its length in so many bytes, the highest first. Thread: any.
class Frames {
 public:
  Frames(std::size_t lengthBytes, std::size_t mostBytes)
      : mLengthBytes(lengthBytes), mMostBytes(mostBytes) {}

  void take(std::span<const std::byte> bytes);
  /// The next message that has come whole, or nothing yet; fails when one is longer than allowed.
  Result<std::optional<std::vector<std::byte>>> next();
  static std::vector<std::byte> framed(std::size_t lengthBytes, std::span<const std::byte> message);

 private:
  const std::size_t mLengthBytes;
  const std::size_t mMostBytes;
  std::vector<std::byte> mBytes;
};

/// Seen only while somebody waits to be paired.
inline constexpr const char* kPairingServiceType = "_rcfz9pair._tcp";

/// A machine, and the user on it, as the proofs of commands name their sender.
struct MachineIdentity {
  std::string name;  ///< for people
  std::string identifier;
  std::int64_t user = 0;

  static MachineIdentity of(const Machine& machine);
  /// "5eed0123beef/501": what tells it from others, and what it signs with.
  std::string sender() const;
};

/// A machine that was paired with this one, and what both know since.
struct PairedMachine {
  MachineIdentity machine;
  ControlKey toControl;       ///< proves commands of this machine there
  ControlKey toBeControlled;  ///< proves commands of that machine here
};

/// The machines that were paired with this one, in a file of the data folder that only the user
/// reads. Thread: main.
class PairedMachines {
 public:
  explicit PairedMachines(ActionStore& store) : mStore(store) {}

  std::vector<PairedMachine> all() const;
  /// Whether they may be others than at the last call; true at the first.
  bool haveChanged();
  /// In place of what was known of the same machine.
  Outcome add(const PairedMachine& machine);
  /// Gives it another name, by which only the user of this machine knows it.
  Result<bool> rename(std::string_view name, std::string_view newName);
  /// By name or identifier; false when there is none, or when several have the name.
  Result<bool> forget(std::string_view name);

 private:
  template <typename Change>
  Outcome change(const Change& change);
  /// Changes the list by the one of that name.
  template <typename Change>
  Result<bool> changeOne(std::string_view name, const Change& changeIt);

  ActionStore& mStore;
  std::optional<std::optional<ZAN_FileIdentity>> mSeen;
};

/// One side of two machines that are being paired. Each shows six digits; where they are equal,
/// nobody stands between the two, but for one chance in a million. The asking side commits itself
/// to its key before it has seen that of the other, so that nobody can search for keys with equal
/// digits. What is exchanged is not secret. Thread: main.
class Pairing {
 public:
  enum class Role { asking, accepting };
  static constexpr std::size_t kMostBytes = 1024;  ///< of a message
  static constexpr std::size_t kLengthBytes = 2;   ///< before each on the network

  Pairing(Role role, MachineIdentity own);

  /// What the asking side says first.
  std::vector<std::byte> begin() const;
  /// Takes a message of the other side and gives what is to be said to it, which may be nothing.
  /// Fails when it is not what has to come now: then there is an attack, or another program.
  Result<std::vector<std::byte>> receive(std::span<const std::byte> message);
  /// Six digits to be compared; nothing before both keys are known.
  const std::optional<std::string>& digits() const { return mDigits; }
  /// The other machine by its own words, from then on.
  const MachineIdentity& other() const { return mOther; }
  /// The user has seen the same digits on both: gives what is to be said.
  std::vector<std::byte> confirm();
  /// The other machine with its keys, once both users have confirmed.
  std::optional<PairedMachine> paired() const;

 private:
  using Bytes = std::array<std::byte, 32>;
  enum class State { commitment, answer, opening, confirmation, done };

  std::vector<std::byte> opening() const;
  bool open(std::span<const std::byte> message);
  Bytes derived(std::string_view purpose) const;

  const Role mRole;
  const MachineIdentity mOwn;
  State mState;
  Bytes mSecret{};
  Bytes mPublic{};
  Bytes mNonce{};
  Bytes mCommitment{};             ///< of the asking side
  std::vector<std::byte> mOpened;  ///< what the other side said of itself
  MachineIdentity mOther;
  Bytes mShared{};
  std::optional<std::string> mDigits;
  bool mConfirmed = false;
};

/// Lets another machine be paired with this one, for two minutes after the user has said so: it is
/// seen on the network meanwhile, and whoever comes is shown with six digits, which the user
/// accepts or refuses. Thread: main.
class PairingOffer {
 public:
  explicit PairingOffer(Records& records);
  PairingOffer(const PairingOffer&) = delete;
  PairingOffer& operator=(const PairingOffer&) = delete;
  ~PairingOffer();

  /// Begins, or begins anew.
  void begin();
  /// Nobody can come any more; a question that is open comes to nothing.
  void end();
  /// What stands, as a sentence; empty before the first offer.
  const std::string& text() const { return mText; }

  /// The machines that are paired with this one, {"name", "sender"} each.
  ZAN_Value machines() const;
  /// Gives the machine of that sender another name; forgets it for an empty one.
  void rename(const std::string& sender, const std::string& name);

 private:
  class Talk;

  void publish();
  void tell(std::string text);
  void ask(Talk& talk);
  void answered(bool accepted);
  void gone(const Talk& talk);
  void endSoon();
  void paired(const PairedMachine& machine);

  Records& m;
  PairedMachines mMachines;
  std::unique_ptr<ServerSocket> mSocket;
  std::unique_ptr<ServicePublication> mPublication;
  RunLoop::TimerId mEnd = 0;
  Talk* mAsked = nullptr;  ///< whose digits the user sees, or has accepted
  std::string mText;
  std::shared_ptr<int> mOffer;  ///< another one with each offer
};

}  // namespace corvana
