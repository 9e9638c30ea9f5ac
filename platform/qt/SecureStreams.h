#pragma once

#include <memory>
#include <string>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Network.h"

namespace corvana {

/// Goes on encrypted over a connected socket, by a module that is opened with the first stream and
/// stays open. Without the module the stream has failed, and says so. Never null. Thread: any.
std::unique_ptr<StreamConnection> secureStream(ZAN_Descriptor socket, const std::string& peerName);

}  // namespace corvana
