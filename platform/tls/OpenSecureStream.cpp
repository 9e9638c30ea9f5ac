#include "platform/tls/OpenSecureStream.h"

#include "platform/tls/SecureStream.h"

extern "C" __attribute__((visibility("default"))) corvana::StreamConnection*
corvana9OpenSecureStream(int socket, const char* peerName) {
  return new corvana::SecureStream(corvana::ZAN_Descriptor(socket), peerName);
}
