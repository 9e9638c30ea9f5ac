#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Network.h"
#include "platform/RunLoop.h"
#include "remote/Pairing.h"

namespace corvana {

struct Records;

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
