#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/KeyedChannel.h"

namespace corvana {

/// A function of a module in the agent's bundle, wherever the running program lies beside it. The
/// module is opened by the first call and stays open: libraries leave objects behind that live
/// until the process ends. Fails where it is missing, or does not belong to this user or root:
/// nobody else may put code into this program. Thread: any.
Result<void*> addressInModule(const std::string& module, const char* function);

/// The same by its type.
template <typename Function>
Result<Function> functionOfModule(const std::string& module, const char* function) {
  const auto address = addressInModule(module, function);
  if (!address) return address.error();
  return reinterpret_cast<Function>(*address);
}

/// The channels of a module that is opened when the first one is wanted. Thread: main.
class ModuleChannels final : public KeyedChannels {
 public:
  /// Why there can be none on this machine, with the remedy; done where there can.
  static Outcome tried();

  Result<std::unique_ptr<KeyedChannel>> asking(const ChannelKey& key) override;
  Result<std::unique_ptr<KeyedChannel>> answering(KeyOf keyOf) override;
};

}  // namespace corvana
