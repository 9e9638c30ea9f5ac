#pragma once

namespace corvana {

class StreamConnection;

/// What the module that encrypts offers by the name below: it goes on encrypted over a connected
/// socket, which is the stream's from now on; -1 makes a stream that has failed. See
/// StreamConnection::startTLS. The stream belongs to the caller. Thread: any.
using OpenSecureStream = StreamConnection* (*)(int socket, const char* peerName);
inline constexpr const char* kOpenSecureStream = "corvana9OpenSecureStream";

}  // namespace corvana
