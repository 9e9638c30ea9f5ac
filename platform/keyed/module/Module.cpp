#include "platform/keyed/TlsChannels.h"

extern "C" __attribute__((visibility("default"))) corvana::KeyedChannels* corvana9KeyedChannels() {
  static corvana::TlsChannels channels;
  return &channels;
}
